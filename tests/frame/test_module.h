#pragma once

#include <functional>
#include <string>
#include <utility>

#include "frame/extension_module.h"

// A module with its own name and hook that makes the protected helpers of the base public.
class TestModule : public CExtensionModule {
 public:
  explicit TestModule(std::string name = "EM_TEST") : m_strName(std::move(name)) {}
  ~TestModule() noexcept override = default;  // so that a test fixture can hold one

  using CExtensionModule::AsyncRequest;
  using CExtensionModule::Forward;
  using CExtensionModule::ForwardFlag;
  using CExtensionModule::ForwardRequest;
  using CExtensionModule::GetAgentType;
  using CExtensionModule::IsForServerCabinet;
  using CExtensionModule::IsSwitchShutdown;
  using CExtensionModule::ResetCabinet;
  using CExtensionModule::ResetMessageId;
  using CExtensionModule::ReturnRequest;
  using CExtensionModule::SetCmdStatus;
  using CExtensionModule::TraceReply;
  using CExtensionModule::TraceRequest;
  using CExtensionModule::TraceReturn;

  const char* GetModuleName() override {
    ++nameCalls;
    return m_strName.c_str();
  }

  uintptr_t OnModuleNotification(uint32_t code, uintptr_t parameter, uintptr_t extra) override {
    return hook ? hook(code, parameter, extra)
                : CExtensionModule::OnModuleNotification(code, parameter, extra);
  }

  std::function<uintptr_t(uint32_t, uintptr_t, uintptr_t)> hook;
  int nameCalls = 0;

 private:
  const std::string m_strName;
};

// Restores the initial cabinet number, which all modules of the process share.
class CabinetReset {
 public:
  CabinetReset() = default;
  ~CabinetReset() { CExtensionModule().SetCabinetNumber(0); }
  CabinetReset(const CabinetReset&) = delete;
  CabinetReset& operator=(const CabinetReset&) = delete;
};
