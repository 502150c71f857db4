#include "platform/event_name_table.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/event_record.h"

namespace {

class EventNameTableTest : public testing::Test {
 protected:
  CEventNameTable m_oTable;
  EventRecord m_oOne{false, false};
  EventRecord m_oOther{false, false};
};

TEST_F(EventNameTableTest, FindsWhatWasEntered) {
  m_oTable.Insert("one", &m_oOne);
  m_oTable.Insert("other", &m_oOther);
  EXPECT_EQ(m_oTable.Find("one"), &m_oOne);
  EXPECT_EQ(m_oTable.Find("other"), &m_oOther);
}

TEST_F(EventNameTableTest, DoesNotFindWhatWasNotEntered) {
  EXPECT_EQ(m_oTable.Find("one"), nullptr);
  m_oTable.Insert("one", &m_oOne);
  EXPECT_EQ(m_oTable.Find("on"), nullptr);
  EXPECT_EQ(m_oTable.Find("One"), nullptr);
  EXPECT_EQ(m_oTable.Find(""), nullptr);
}

TEST_F(EventNameTableTest, EntersOverAnEarlierRecord) {
  m_oTable.Insert("one", &m_oOne);
  m_oTable.Insert("one", &m_oOther);
  EXPECT_EQ(m_oTable.Find("one"), &m_oOther);
  m_oTable.Remove("one");
  EXPECT_EQ(m_oTable.Find("one"), nullptr);
}

TEST_F(EventNameTableTest, RemovesOnlyThatName) {
  m_oTable.Insert("one", &m_oOne);
  m_oTable.Insert("other", &m_oOther);
  m_oTable.Remove("one");
  m_oTable.Remove("absent");
  EXPECT_EQ(m_oTable.Find("one"), nullptr);
  EXPECT_EQ(m_oTable.Find("other"), &m_oOther);
}

TEST_F(EventNameTableTest, IsEmptyAfterClear) {
  m_oTable.Insert("one", &m_oOne);
  m_oTable.Insert("other", &m_oOther);
  m_oTable.Clear();
  EXPECT_EQ(m_oTable.Find("one"), nullptr);
  EXPECT_EQ(m_oTable.Find("other"), nullptr);
}

TEST_F(EventNameTableTest, ThreadsMayUseItTogether) {
  const auto work = [&](const std::string& prefix, EventRecord* record) {
    for (int number = 0; number < 500; ++number) {
      const std::string name = prefix + std::to_string(number);
      m_oTable.Insert(name, record);
      EXPECT_EQ(m_oTable.Find(name), record);
      if (number % 2 == 0) {
        m_oTable.Remove(name);
      }
    }
  };
  std::thread other(work, "a", &m_oOther);
  work("b", &m_oOne);
  other.join();
  EXPECT_EQ(m_oTable.Find("a498"), nullptr);
  EXPECT_EQ(m_oTable.Find("a499"), &m_oOther);
  EXPECT_EQ(m_oTable.Find("b499"), &m_oOne);
}

}  // namespace
