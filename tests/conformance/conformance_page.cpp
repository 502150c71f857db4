#include "tests/conformance/conformance.h"

namespace {

constexpr char HEAD[] =
    R"(# What Windows answers, and what the platform layer answers

For developers who bring a program from Windows: `platform/` stands in for these calls of it. Each row was asked of the
platform layer; the column "Windows" is what the documented call answers there. "Deliberate" differences are wanted and
stay. Strings stand in double quotes; \0 is a NUL, ⏎ a line end.

This page is printed by `conformance_tests --print`; a test checks that it is up to date.
)";

constexpr char PROFILES[] = R"(
## Profile strings

| Windows | Here |
| --- | --- |
| `GetPrivateProfileString` | `GetPrivateProfileString`, `CProfile::ReadString` |
| `GetPrivateProfileInt` | `CProfile::ReadInteger` |
| `GetPrivateProfileSectionNames` | `CProfile::ReadSections` |
| `WritePrivateProfileString` | `WritePrivateProfileString`, `CProfile::WriteString`, `DeleteKey`, `DeleteSection` |

Unless a row says otherwise, the file is this one, the question is for name1 of section1, the default is "default" and
the buffer has 260 bytes. An answer is the count that the call returns, and that many characters of the buffer.

```ini
[section1]
name1=val1
name2="val2"
name3
name4=a
[section2]
```
)";

constexpr char PROFILE_CHANGES[] = R"(
The file before has sections s, t and u with the keys a, b and c. An answer is the result, the file afterwards, or what
is read back from it.
)";

constexpr char EVENTS[] = R"(
## Events

| Windows | Here |
| --- | --- |
| `CreateEvent`, `OpenEvent` | `CEvent`, the constructor |
| `SetEvent`, `ResetEvent`, `PulseEvent` | `Set`, `Reset`, `Pulse` |
| `WaitForSingleObject` | `Wait` |
| `DuplicateHandle` | the copy |
| `CloseHandle` | the end of the object; `Close` does more, as the tables show |
)";

constexpr char REGISTRY[] = R"(
## Registry

| Windows | Here |
| --- | --- |
| `RegOpenKeyEx`, `RegCloseKey` | `CRegistry::Open`, `Close` |
| `RegCreateKeyEx`, `RegDeleteKey` | `CreateKey`, `DeleteKey` |
| `RegEnumKeyEx`, `RegEnumValue` | `EnumKeys`, `EnumValues` |
| `RegQueryValueEx` | `GetValue`; for strings `QueryValue` |
| `RegGetValue`, which expands | the same, unless `SetExpand(false)` |
| `RegSetValueEx`, `RegDeleteValue` | `SetValue`, `DeleteValue` |
| `RegFlushKey` | `Flush`, and the end of every object |

"Refused" is any failure but "not found" and "too small".
)";

std::string RowOf(const ConformanceCase& row) {
  const std::string ours =
      row.differs ? row.differs->ours + " | deliberate: " + row.differs->why : "the same |";
  return std::string("| ") + row.asked + " | " + row.windows + " | " + ours + " |\n";
}

std::string TableOf(const char* title, const ConformanceCases& rows, const char* explained = "") {
  std::string text = std::string("\n### ") + title + "\n" + explained +
                     "\n| Asked | Windows | Here | Why |\n| --- | --- | --- | --- |\n";
  for (const ConformanceCase& row : rows) {
    text += RowOf(row);
  }
  return text;
}

}  // namespace

std::string ConformancePage() {
  std::string page = HEAD;
  page += PROFILES;
  page += TableOf("Values", ProfileReadingCases());
  page += TableOf("Lists of names", ProfileListCases());
  page += TableOf("Changes of a file", ProfileWritingCases(), PROFILE_CHANGES);
  page += EVENTS;
  page += TableOf("States", EventCases());
  page += TableOf("Threads that wait", EventWaiterCases());
  page += TableOf("Names and handles", EventHandleCases());
  page += REGISTRY;
  page += TableOf("Keys", RegistryKeyCases());
  page += TableOf("Values of keys", RegistryValueCases());
  page += TableOf("After a restart of the process", RegistryStorageCases());
  return page;
}
