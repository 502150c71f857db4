#include "trace/sink_symbol.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdarg>

// A sink that must not be called: what it is shows without a call.
class Sink final : public ITraceSink {
 public:
  void Placeholder0() override {}
  void Placeholder1() override {}
  bool IsValid() override { throw "called"; }
  void Placeholder3() override {}
  void Placeholder4() override {}
  void Placeholder5() override {}
  void Placeholder6() override {}
  void PlainOutput(const char* /*format*/, va_list /*arguments*/, const char* /*name*/) override {}
  void Output(const char* /*format*/, va_list /*arguments*/, const char* /*name*/) override {}
};

// What a host may export under the sink's name. A symbol of each, for which they are not local.
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
  .quad _ZTV4Sink + 16
  .globl LabelOfASink
LabelOfASink:
  .quad _ZTV4Sink + 16
  .text
)");
extern int HalfOfASink;
extern char LabelOfASink;

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
