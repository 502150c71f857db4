#include "soak/hostile_caller.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "frame/notification.h"
#include "soak/hostile_record.h"

namespace fs = std::filesystem;

namespace {

constexpr uint32_t CLEANUP = 4;
constexpr std::array<uint32_t, 6> OTHER_ACTIONS = {0, 1, 2, 3, 5, UINT32_MAX};
constexpr char NAME[] = "EM_TALVOR";
constexpr char COLLECTOR_DIRECTORY[] = "/var/log/Talvor";

// The announcement of the switch's shutdown, after which no job does anything, is left to whoever
// ends the module.
constexpr std::array<uint32_t, 9> NOTIFICATIONS = {SCN_SWITCH_REQUEST_ENABLED,
                                                   SCN_SYSTEM_SHUTDOWN,
                                                   SCN_POWERSTATE_SUSPEND,
                                                   SCN_POWERSTATE_STANDBY,
                                                   SCN_POWERSTATE_RESUME,
                                                   SCN_POWERSTATE_AC_OFFLINE,
                                                   SCN_POWERSTATE_AC_ONLINE,
                                                   0,
                                                   UINT32_MAX};

// The identification record and what lies behind it, none of the module's business.
constexpr uint32_t INFO_SIZE = 246;
constexpr size_t NAME_OFFSET = 46;
constexpr std::array<uint32_t, 5> INFO_SIZES = {0, INFO_SIZE - 1, INFO_SIZE, INFO_SIZE + 50,
                                                UINT32_MAX};
constexpr uint8_t UNTOUCHED = 0xA5;

// What CLEANUP removes: files in directories in the collector's own.
void MakeArchiveData() {
  std::error_code ignored;
  for (const char* directory : {"/logs", "/logs/deep/deeper", "/.hidden"}) {
    const std::string path = std::string(COLLECTOR_DIRECTORY) + directory;
    fs::create_directories(path, ignored);
    std::ofstream(path + "/file") << "data";
  }
}

}  // namespace

size_t CHostileCaller::CallModule(CIExtensionModule& module) {
  const size_t calls = 50 + m_oDraw.Below(250);
  for (size_t call = 0; call < calls; ++call) {
    const uint32_t number = m_oDraw.Below(100);
    if (number < 50) {
      SendHostileRequest(module, m_oBook, m_oDraw);
    } else if (number < 80) {
      CallSlot(module);
    } else if (number < 90) {
      CallExport();
    } else if (number < 98) {
      Disturb();
    } else {
      m_oSite.collector.KillHangingCollector();
    }
    Pause();
  }
  return calls;
}

size_t CHostileCaller::CallExports(const std::atomic<bool>& ends) {
  size_t calls = 0;
  for (; !ends; ++calls) {
    CallExport();
    if (m_oDraw.OneIn(10)) {
      Disturb();
    }
    Pause();
  }
  return calls;
}

void CHostileCaller::CallSlot(CIExtensionModule& module) {
  switch (m_oDraw.Below(6)) {
    case 0:
      Expect(module.ModuleNotification(m_oDraw.Of(NOTIFICATIONS), m_oDraw.Below(1000), 1) == 0,
             "a notification");
      break;
    case 1:
      Expect(module.OnModuleNotification(m_oDraw.Of(NOTIFICATIONS), 0, 0) == 0, "slot 23");
      break;
    case 2:
      Expect(module.SetCabinetNumber(m_oDraw.Below(2) * 7) == 1, "SetCabinetNumber");
      break;
    case 3:
      Expect(strcmp(module.GetModuleName(), NAME) == 0, "GetModuleName");
      break;
    case 4:
      CallModuleInfo(module);
      break;
    default:
      CallPlaceholder(module);
      break;
  }
}

void CHostileCaller::CallModuleInfo(CIExtensionModule& module) {
  const uint32_t size = m_oDraw.Of(INFO_SIZES);
  std::array<uint8_t, 300> record;
  record.fill(UNTOUCHED);
  std::memcpy(record.data(), &size, sizeof(size));
  const auto untouched = record;
  const uint32_t result = module.GetModuleInfo(record.data());
  if (size < INFO_SIZE) {
    Expect(result == 0 && record == untouched, "GetModuleInfo with a record that is too small");
  } else {
    Expect(result == 1 && std::memcmp(&record[NAME_OFFSET], NAME, sizeof(NAME)) == 0 &&
               std::equal(record.begin() + INFO_SIZE, record.end(), untouched.begin() + INFO_SIZE),
           "GetModuleInfo");
  }
}

void CHostileCaller::CallPlaceholder(CIExtensionModule& module) {
  Expect(module.Placeholder3() == 1, "slot 3");
  module.Placeholder6();
  module.Placeholder7();
  module.Placeholder15();
  module.Placeholder16();
  module.Placeholder17();
  module.Placeholder18();
  Expect(module.Placeholder9() == 0 && module.Placeholder11() == 0 && module.Placeholder12() == 0 &&
             module.Placeholder19() == 0 && module.Placeholder20() == 0 &&
             module.Placeholder21() == 0 && module.Placeholder22() == 0,
         "a slot that returns 0");
}

void CHostileCaller::CallExport() {
  if (m_oDraw.OneIn(2)) {
    Expect(strcmp(m_oSite.library.GetModuleName(), NAME) == 0, "EM_GetModuleName");
    return;
  }
  // Without the archive transfers do nothing, so it is seldom cleaned up.
  const uint32_t action = m_oDraw.OneIn(40) ? CLEANUP : m_oDraw.Of(OTHER_ACTIONS);
  const uint32_t result = m_oSite.library.SetupAction(action);
  // Of two that remove the same directory one may fail.
  Expect(result <= (action == CLEANUP ? 1U : 0U), "EM_SetupAction");
}

void CHostileCaller::Disturb() {
  switch (m_oDraw.Below(8)) {
    case 0:
      MakeArchiveData();
      break;
    case 1:
      if (m_oDraw.OneIn(50)) {
        m_oSite.collector.RunForeignCollector();
      }
      break;
    default:
      m_oSite.traceFiles.Change(m_oDraw);
      break;
  }
}

void CHostileCaller::Pause() {
  switch (m_oDraw.Below(6)) {
    case 0:
      std::this_thread::yield();
      break;
    case 1:
    case 2:
      std::this_thread::sleep_for(std::chrono::microseconds(m_oDraw.Below(10000)));
      break;
    default:
      break;
  }
}

void CHostileCaller::Expect(bool isRight, const char* what) {
  if (!isRight) {
    m_oBook.Complain(std::string("A result is not one of the documented: ") + what + ".");
  }
}
