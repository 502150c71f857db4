#include "trace/sink_symbol.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/support/default_sink.h"

// What a host may export under the sink's name. Each needs a symbol, for which it is not local.
namespace exported {

// Must not be called: what it is shows without a call.
class Sink final : public DefaultSink {
  bool IsValid() override { throw "called"; }
};

extern constinit Sink SinkObject;
constinit Sink SinkObject;
extern ITraceSink* SinkPointer;
ITraceSink* SinkPointer = &SinkObject;
extern ITraceSink* NullPointer;
ITraceSink* NullPointer = nullptr;
extern const char* TextPointer;
const char* TextPointer = "text";
extern int Number;
int Number = 1;
void Function() {}

// A table of operations in which `position` leads to no code.
struct Table {
  explicit Table(size_t position) {
    operations.fill(reinterpret_cast<const void*>(&Function));
    operations[position] = &Number;
  }
  std::array<const void*, 9> operations;
};
extern std::array<Table, 3> BrokenTables;
std::array<Table, 3> BrokenTables = {Table(2), Table(7), Table(8)};
extern std::array<const Table*, 3> BrokenObjects;
std::array<const Table*, 3> BrokenObjects = {&BrokenTables[0], &BrokenTables[1], &BrokenTables[2]};

// The content of a sink, with a symbol for half of it and a label of the linker's kind for a whole.
asm(R"(
  .data
  .balign 8
  .globl HalfOfASink
  .type HalfOfASink, @object
  .size HalfOfASink, 4
HalfOfASink:
  .quad _ZTVN8exported4SinkE + 16
  .globl LabelOfASink
LabelOfASink:
  .quad _ZTVN8exported4SinkE + 16
  .text
)");
extern "C" int HalfOfASink;
extern "C" char LabelOfASink;

}  // namespace exported

namespace {

using namespace exported;  // NOLINT(google-build-using-namespace)

TEST(SinkSymbolTest, IsASinkWhereAnObjectHasOperations) {
  EXPECT_EQ(SinkAtSymbol(&SinkObject), &SinkObject);
}

TEST(SinkSymbolTest, IsASinkWhereOnlyALabelSharesItsAddress) {
  EXPECT_EQ(SinkAtSymbol(&LabelOfASink), reinterpret_cast<ITraceSink*>(&LabelOfASink));
}

TEST(SinkSymbolTest, IsNoneWhereSomethingElseHasTheName) {
  EXPECT_EQ(SinkAtSymbol(nullptr), nullptr);
  EXPECT_EQ(SinkAtSymbol(reinterpret_cast<void*>(&Function)), nullptr);
  EXPECT_EQ(SinkAtSymbol(&Number), nullptr);
  EXPECT_EQ(SinkAtSymbol(&SinkPointer), nullptr);
  EXPECT_EQ(SinkAtSymbol(&NullPointer), nullptr);
  EXPECT_EQ(SinkAtSymbol(&TextPointer), nullptr);
  EXPECT_EQ(SinkAtSymbol(&HalfOfASink), nullptr);
}

TEST(SinkSymbolTest, IsNoneWhereACalledOperationIsNoCode) {
  for (const Table*& object : BrokenObjects) {
    EXPECT_EQ(SinkAtSymbol(&object), nullptr);
  }
}

TEST(SinkSymbolTest, IsNoneWhereNothingIsLoaded) {
  int local = 0;
  EXPECT_EQ(SinkAtSymbol(&local), nullptr);
  EXPECT_EQ(SinkAtSymbol(reinterpret_cast<void*>(8)), nullptr);
}

}  // namespace
