#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "frame/extension_module_interface.h"
#include "host/module_library.h"
#include "soak/collector_site.h"
#include "soak/draw.h"
#include "soak/hostile_book.h"
#include "soak/trace_files.h"

// What the threads of a hostile host call from.
struct HostileSite {
  const CModuleLibrary& library;
  const CCollectorSite& collector;
  CTraceFiles& traceFiles;
};

// One of the sixteen threads of a hostile host. What it calls, in which order and with what, is
// drawn from the seed and the thread's number alone, and so the same in each run; when, and what
// comes of it, is not.
//
// Not thread-safe: each thread has one of its own. The site, the book and the module must outlive
// it.
class CHostileCaller {
 public:
  CHostileCaller(const HostileSite& site, CHostileBook& book, uint32_t seed, uint32_t thread)
      : m_oSite(site), m_oBook(book), m_oDraw(seed, thread) {}

  // Calls the module's slots and the exports, as often as is drawn. Returns how often.
  size_t CallModule(CIExtensionModule& module);

  // Calls the exports that need no instance, until `ends`. Returns how often.
  size_t CallExports(const std::atomic<bool>& ends);

 private:
  void CallSlot(CIExtensionModule& module);
  void CallExport();
  void Disturb();
  void Pause();
  void CallModuleInfo(CIExtensionModule& module);
  void CallPlaceholder(CIExtensionModule& module);
  void Expect(bool isRight, const char* what);

  const HostileSite& m_oSite;
  CHostileBook& m_oBook;
  CDraw m_oDraw;
};
