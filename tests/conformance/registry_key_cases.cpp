// Keys of the registry.

#include "tests/conformance/conformance.h"
#include "tests/conformance/registry_answers.h"

namespace {

constexpr char EXACT_KEYS[] = "names are matched exactly, case counts";
constexpr char TWO_SEPARATORS[] = "\"/\" separates the keys of a path as \"\\\\\" does";
constexpr char NAME_STAYS[] = "the name of a deleted key stays taken and opens as an empty key";
constexpr char STORES_NOTHING[] = "a deleted key is an empty key that stores nothing";
constexpr char SUBTREE_GOES[] = "a key is deleted with everything below it";
constexpr char ONE_NAME[] = "a name of the current key is asked for, no path";
constexpr char DELETED_ERROR[] = "a name that is no subkey is an invalid argument";
constexpr char NO_VIEWS[] = "each root key has a tree of its own";
constexpr char NO_ACCESS[] = "the access that is asked for is not looked at";
constexpr char NULL_IS_TOP[] = "the null handle is the key above the root keys";
constexpr char PATH_WANTED[] = "a path is wanted, if only an empty one";
constexpr char NOT_TOLD[] = "a creation tells success or failure only";
constexpr char NOTHING_CHANGES[] = "an empty path creates nothing and opens nothing";
constexpr char NO_LIMIT[] = "names have no limit in memory";
constexpr char ONE_SPACE[] = "values and subkeys of a key share one name space";
constexpr char ALL_AT_ONCE[] = "one call gives all names";
constexpr char ERRNO_NUMBERS[] = "values fail with numbers of errno, keys with -1";

std::string OpenBelow(CRegistry& key, const char* path) { return OpenWord(path, key.GetKey()); }

// Creates keys below the current one, which stays.
void MakeKey(CRegistry& key, const char* path) { CRegistry().CreateKey(key.GetKey(), path); }

std::function<std::string()> OpenAfterMaking(const char* made, const char* opened) {
  return AskRegistry([=](CRegistry& key) {
    MakeKey(key, made);
    return OpenBelow(key, opened);
  });
}

std::string DeleteWord(CRegistry& key, const char* name) {
  const int32_t result = key.DeleteKey(name);
  return result == REGISTRY_OK ? "done" : "refused";
}

std::function<std::string()> DeleteAfterMaking(const char* made, const char* deleted) {
  return AskRegistry([=](CRegistry& key) {
    MakeKey(key, made);
    return DeleteWord(key, deleted);
  });
}

std::string OpenRootKeys(CRegistry& /*key*/) {
  for (const RootKey root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_USERS, HKEY_CLASSES_ROOT,
                             HKEY_CURRENT_CONFIG}) {
    if (OpenWord("", root) != "found") {
      return ROOT_KEY_NAMES[root];
    }
  }
  return "found";
}

// Makes a key below one root, and looks for it below another.
std::function<std::string()> SeenFrom(RootKey made, const char* madePath, RootKey seen,
                                      const char* seenPath) {
  return AskRegistry([=](CRegistry&) {
    CRegistry().CreateKey(made, madePath);
    return OpenWord(seenPath, seen);
  });
}

// Calls `use` on an object whose key is deleted through another.
std::function<std::string()> WithDeletedKey(const RegistrySteps& use) {
  return AskRegistry([=](CRegistry& key) {
    MakeKey(key, "A");
    CRegistry deleted("A", key.GetKey());
    deleted.SetValue("value", "text");
    key.DeleteKey("A");
    return use(deleted);
  });
}

std::string CreateTwice(CRegistry& key) {
  CRegistry first;
  first.CreateKey(key.GetKey(), "A");
  first.SetValue("value", "text");
  CRegistry second;
  second.CreateKey(key.GetKey(), "A");
  return TextOf(second, "value");
}

std::string CreateDeletedAgain(CRegistry& key) {
  {
    CRegistry first;
    first.CreateKey(key.GetKey(), "A");
    first.SetValue("value", "text");
    first.CreateKey(nullptr, "B");
  }
  key.DeleteKey("A");
  CRegistry second;
  second.CreateKey(key.GetKey(), "A");
  return KeysOf(second) + ", " + TextOf(second, "value");
}

// Whether a key that is created by an empty path is the parent, open.
std::string CreateEmptyPath(CRegistry& key) {
  CRegistry other;
  other.CreateKey(key.GetKey(), "");
  return other.GetKey().IsNull() ? "the object stays as it is" : "the parent, opened";
}

}  // namespace

ConformanceCases RegistryKeyCases() {
  return {
      {"key that is there, opened", OpenAfterMaking("A", "A"), "found"},
      {"key that is missing, opened", OpenAfterMaking("A", "B"), "not found"},
      {"number for a missing key",
       AskRegistry([](CRegistry& key) { return std::to_string(key.Open("B", HKEY_USERS)); }), "2",
       Deliberate{"-1", ERRNO_NUMBERS}},
      {"path of two keys", OpenAfterMaking("A\\B", "A\\B"), "found"},
      {"path whose first key is missing", OpenAfterMaking("A\\B", "C\\B"), "not found"},
      {"key in other case", OpenAfterMaking("Alpha", "ALPHA"), "found",
       Deliberate{"not found", EXACT_KEYS}},
      {"key A\\\\B, path A/B", OpenAfterMaking("A\\B", "A/B"), "not found",
       Deliberate{"found", TWO_SEPARATORS}},
      {"key created as A/B, path A", OpenAfterMaking("A/B", "A"), "not found",
       Deliberate{"found", TWO_SEPARATORS}},
      {"empty path", OpenAfterMaking("A", ""), "found"},
      {"path null", AskRegistry([](CRegistry& key) {
         return CRegistry().Open(nullptr, key.GetKey()) == REGISTRY_OK ? "found" : "refused";
       }),
       "found", Deliberate{"refused", PATH_WANTED}},
      {"root keys, each of the five", AskRegistry(&OpenRootKeys), "found"},
      {"null handle, path from a root key",
       AskRegistry([](CRegistry&) { return OpenWord("HKEY_CURRENT_USER\\Key", nullptr); }),
       "not found", Deliberate{"found", NULL_IS_TOP}},
      {"path that ends in a value", AskRegistry([](CRegistry& key) {
         key.SetValue("value", "text");
         return OpenBelow(key, "value");
       }),
       "not found"},
      {"key of HKEY_LOCAL_MACHINE\\\\Software\\\\Classes in HKEY_CLASSES_ROOT",
       SeenFrom(HKEY_LOCAL_MACHINE, "Software\\Classes\\A", HKEY_CLASSES_ROOT, "A"), "found",
       Deliberate{"not found", NO_VIEWS}},
      {"key of HKEY_CURRENT_CONFIG in HKEY_LOCAL_MACHINE",
       SeenFrom(HKEY_CURRENT_CONFIG, "A", HKEY_LOCAL_MACHINE,
                "SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current\\A"),
       "found", Deliberate{"not found", NO_VIEWS}},
      {"key opened to read, value set", AskRegistry([](CRegistry&) {
         constexpr int32_t KEY_READ = 0x20019;
         CRegistry key("Key", HKEY_CURRENT_USER, KEY_READ);
         return Store(key, "value", "text", REG_SZ);
       }),
       "refused", Deliberate{"stored", NO_ACCESS}},
      {"key created that is missing",
       AskRegistry([](CRegistry& key) { return CreateWord(key, nullptr, "A"); }), "created"},
      {"key created that is there, its values", AskRegistry(&CreateTwice), "\"text\""},
      {"key created that is there, is it told", AskRegistry([](CRegistry& key) {
         MakeKey(key, "A");
         CRegistry first;
         CRegistry second;
         return first.CreateKey(key.GetKey(), "A") == second.CreateKey(key.GetKey(), "B")
                    ? "not told"
                    : "told";
       }),
       "told", Deliberate{"not told", NOT_TOLD}},
      {"path created, the keys on the way", OpenAfterMaking("A\\B\\C", "A\\B"), "found"},
      {"empty path, created", AskRegistry(&CreateEmptyPath), "the parent, opened",
       Deliberate{"the object stays as it is", NOTHING_CHANGES}},
      {"path null, created",
       AskRegistry([](CRegistry& key) { return CreateWord(key, HKEY_CURRENT_USER, nullptr); }),
       "refused"},
      {"key created below no key", AskRegistry([](CRegistry&) {
         CRegistry none;
         return CreateWord(none, nullptr, "A");
       }),
       "refused"},
      {"key created with the name of a value", AskRegistry([](CRegistry& key) {
         key.SetValue("name", "text");
         return CreateWord(key, nullptr, "name");
       }),
       "created", Deliberate{"refused", ONE_SPACE}},
      {"key created with a name of 300 characters", AskRegistry([](CRegistry& key) {
         return CreateWord(key, nullptr, std::string(300, 'x').c_str());
       }),
       "refused", Deliberate{"created", NO_LIMIT}},
      {"key deleted", DeleteAfterMaking("A", "A"), "done"},
      {"key deleted, then opened", AskRegistry([](CRegistry& key) {
         MakeKey(key, "A");
         key.DeleteKey("A");
         return OpenBelow(key, "A");
       }),
       "not found", Deliberate{"found", NAME_STAYS}},
      {"key deleted, then listed", AskRegistry([](CRegistry& key) {
         MakeKey(key, "A");
         MakeKey(key, "B");
         key.DeleteKey("A");
         return KeysOf(key);
       }),
       "\"B\""},
      {"key deleted, then created again", AskRegistry(&CreateDeletedAgain), "none, not found"},
      {"key deleted that has subkeys", DeleteAfterMaking("A\\B", "A"), "refused",
       Deliberate{"done", SUBTREE_GOES}},
      {"key deleted that is missing", DeleteAfterMaking("A", "B"), "not found",
       Deliberate{"refused", DELETED_ERROR}},
      {"key deleted by the name of a value", AskRegistry([](CRegistry& key) {
         key.SetValue("name", "text");
         return DeleteWord(key, "name");
       }),
       "not found", Deliberate{"refused", DELETED_ERROR}},
      {"key deleted by its name in other case", DeleteAfterMaking("Alpha", "ALPHA"), "done",
       Deliberate{"refused", EXACT_KEYS}},
      {"key deleted by a path", DeleteAfterMaking("A\\B", "A\\B"), "done",
       Deliberate{"refused", ONE_NAME}},
      {"key deleted, name null", DeleteAfterMaking("A", nullptr), "refused"},
      {"handle of a deleted key, query",
       WithDeletedKey([](CRegistry& key) { return TextOf(key, "value"); }), "key deleted",
       Deliberate{"not found", STORES_NOTHING}},
      {"handle of a deleted key, set",
       WithDeletedKey([](CRegistry& key) { return Store(key, "value", "text", REG_SZ); }),
       "key deleted", Deliberate{"refused", STORES_NOTHING}},
      {"handle of a deleted key, create below it",
       WithDeletedKey([](CRegistry& key) { return CreateWord(key, nullptr, "B"); }), "key deleted",
       Deliberate{"refused", STORES_NOTHING}},
      {"subkeys listed", AskRegistry([](CRegistry& key) {
         MakeKey(key, "B");
         MakeKey(key, "A\\C");
         key.SetValue("value", "text");
         return KeysOf(key);
       }),
       "\"A\", \"B\""},
      {"subkeys listed in the spelling of their creation", AskRegistry([](CRegistry& key) {
         MakeKey(key, "MiXed");
         return KeysOf(key);
       }),
       "\"MiXed\""},
      {"subkeys listed past the end", AskRegistry(&KeysOf), "no more items",
       Deliberate{"none", ALL_AT_ONCE}},
      {"subkeys listed without a key", AskRegistry([](CRegistry&) {
         CRegistry none;
         return KeysOf(none);
       }),
       "refused"},
      {"key created through one handle, seen through another", AskRegistry([](CRegistry& key) {
         CRegistry other(key);
         MakeKey(other, "A");
         return KeysOf(key);
       }),
       "\"A\""},
  };
}
