#pragma once

#include <cstdint>

class CISwitch;
class SipJson;

// What the host's switch sees of an extension module. The host calls the operations by their
// position in the virtual table, so their order and their count of 24 are part of the binary
// interface; the numbers beside them are those positions. Results called true/false or 1/0 are 32
// bits wide and exactly 0 or 1, because a host may read them as a byte or as a word.
//
// The placeholders belong to the host; modules keep them as they are.
class CIExtensionModule {
 public:
  // 0, 1. May throw: whoever deletes a module survives an exception of its destructor.
  virtual ~CIExtensionModule() noexcept(false) = default;

  // 2. Fills the host's identification record (owned by the host; its first 32 bits give its size).
  // Returns 1 when written, 0 when not.
  virtual uint32_t GetModuleInfo(void* record) = 0;

  // 3. Returns 1.
  virtual uint32_t Placeholder3() = 0;

  // 4. Starts the module. The switch stays the host's and must outlive the module, which may still
  // use it after Stop(). Returns 1 when started, 0 when not.
  virtual uint32_t Start(CISwitch* pSwitch, uint32_t moduleId) = 0;

  // 5. Returns 1.
  virtual uint32_t Stop() = 0;

  // 6, 7.
  virtual void Placeholder6() = 0;
  virtual void Placeholder7() = 0;

  // 8. Handles the current command of the request, which stays the switch's and is answered in
  // place. Returns 1 when the module handles the command, 0 when not.
  virtual uint32_t ModuleRequest(SipJson& request) = 0;

  // 9. Returns 0.
  virtual uintptr_t Placeholder9() = 0;

  // 10. Sets the number of the server cabinet. Returns 1.
  virtual uint32_t SetCabinetNumber(uint32_t number) = 0;

  // 11, 12. Return 0.
  virtual uintptr_t Placeholder11() = 0;
  virtual uintptr_t Placeholder12() = 0;

  // 13. Delivers a notification, one of the SCN_ codes or any other. Returns what
  // OnModuleNotification() returns.
  virtual uintptr_t ModuleNotification(uint32_t code, uintptr_t parameter, uintptr_t extra) = 0;

  // 14. The module's name; constant, never null, never freed by the caller.
  virtual const char* GetModuleName() = 0;

  // 15 to 18.
  virtual void Placeholder15() = 0;
  virtual void Placeholder16() = 0;
  virtual void Placeholder17() = 0;
  virtual void Placeholder18() = 0;

  // 19 to 22. Return 0.
  virtual uintptr_t Placeholder19() = 0;
  virtual uintptr_t Placeholder20() = 0;
  virtual uintptr_t Placeholder21() = 0;
  virtual uintptr_t Placeholder22() = 0;

  // 23. The module's own reaction to a notification; called by ModuleNotification() with its
  // arguments.
  virtual uintptr_t OnModuleNotification(uint32_t code, uintptr_t parameter, uintptr_t extra) = 0;
};
