// Memory that waits to be recycled is not in use: the address sanitizer reports every access.
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "velt/channel.h"

#include "debug/channel/record_node.h"
#include "debug/channel/record_recycler.h"
#include "tests/faults/sanitizers.h"

namespace velt::test {
namespace {

#if VELT_ADDRESS_SANITIZER
constexpr char const* kReport = "use-after-poison";

// Volatile, so that the compiler does not warn of the use after delete.
OutDataUnit* volatile stale = nullptr;

void DeleteOne() {
  stale = new OutDataUnit;
  delete stale;
}

TEST(RecordPoisonDeathTest, ADeletedRecordCannotBeWritten) {
  DeleteOne();

  EXPECT_DEATH(stale->m_nLevel = 1, kReport);
}

TEST(RecordPoisonDeathTest, ADeletedRecordCannotBeRead) {
  DeleteOne();

  EXPECT_DEATH(std::exit(stale->m_bLog ? 1 : 0), kReport);
}

TEST(RecordPoisonDeathTest, TheArraysOfADeletedRecordCannotBeTouched) {
  DeleteOne();
  RecordNode* const node = NodeOf(stale);
  char* const volatile text = node->text;
  char* const volatile stamp = node->stamp;

  EXPECT_DEATH(text[0] = 'x', kReport);
  EXPECT_DEATH(text[kNodeTextBytes - 1] = 'x', kReport);
  EXPECT_DEATH(stamp[kTimeStampLength] = 'x', kReport);
}

TEST(RecordPoisonDeathTest, ADeletedRecordCannotBeDeletedAgain) {
  DeleteOne();

  EXPECT_DEATH(delete stale, kReport);
}

TEST(RecordPoisonDeathTest, ARecordThatWentThroughTheDepotCannotBeTouched) {
  std::vector<OutDataUnit*> records;
  for (int i = 0; i < 128 * 5; ++i) records.push_back(new OutDataUnit);
  for (OutDataUnit* const record : records) delete record;
  ASSERT_GT(IdleNodesInDepot(), 0U);

  for (std::size_t i = 0; i < records.size(); i += 127) {
    stale = records[i];
    EXPECT_DEATH(stale->m_nLevel = 1, kReport) << i;
  }
}
#endif

// The opposite case, with and without the sanitizer.
TEST(RecordPoisonTest, MemoryThatIsGivenOutAgainMayBeUsedWhole) {
  std::vector<OutDataUnit*> records;
  for (int i = 0; i < 128 * 5; ++i) records.push_back(new OutDataUnit);
  for (OutDataUnit* const record : records) delete record;
  records.clear();

  std::thread([&] {
    for (int i = 0; i < 128 * 4; ++i) records.push_back(new OutDataUnit);
  }).join();
  for (OutDataUnit* const record : records) {
    RecordNode* const node = NodeOf(record);
    record->m_nLevel = 3;
    node->text[0] = node->text[kNodeTextBytes - 1] = 'x';
    node->stamp[0] = node->stamp[kTimeStampLength] = '\0';
    node->block.next(nullptr);
  }

  EXPECT_EQ(records.back()->m_nLevel, 3);
  for (OutDataUnit* const record : records) delete record;
}

}  // namespace
}  // namespace velt::test
