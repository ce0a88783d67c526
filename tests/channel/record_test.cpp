// Trace records: what a new one holds, and that it frees what it owns.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"

namespace velt::test {
namespace {

TEST(RecordTest, ANewRecordHoldsLevelThreeAndNothingElse) {
  auto const rec = std::make_unique<OutDataUnit>();

  EXPECT_EQ(rec->m_pTimeStamp, nullptr);
  EXPECT_EQ(rec->m_nThreadId, 0);
  EXPECT_EQ(rec->m_nLevel, 3);
  EXPECT_EQ(rec->m_strModule, "");
  EXPECT_EQ(rec->m_pText, nullptr);
  EXPECT_EQ(rec->m_pAsn, nullptr);
  EXPECT_FALSE(rec->m_bPrint);
  EXPECT_FALSE(rec->m_bLog);
}

TEST(RecordTest, TheFieldsHaveTheirTypesAndLieInTheirOrder) {
  OutDataUnit const rec;
  auto const at = [&rec](void const* field) {
    return reinterpret_cast<std::uintptr_t>(field) - reinterpret_cast<std::uintptr_t>(&rec);
  };

  std::vector<std::uintptr_t> const offsets = {at(&rec.m_pTimeStamp), at(&rec.m_nThreadId), at(&rec.m_nLevel),
                                               at(&rec.m_strModule),  at(&rec.m_pText),     at(&rec.m_pAsn),
                                               at(&rec.m_bPrint),     at(&rec.m_bLog)};

  EXPECT_EQ(offsets, (std::vector<std::uintptr_t>{0, 8, 16, 24, 56, 64, 72, 73}));
  EXPECT_EQ(sizeof(OutDataUnit), 80U);
  EXPECT_TRUE((std::is_same_v<decltype(OutDataUnit::m_nThreadId), std::int64_t>));
  EXPECT_TRUE((std::is_same_v<decltype(OutDataUnit::m_nLevel), std::int32_t>));
}

TEST(RecordTest, ARecordCannotBeDerivedFrom) { EXPECT_TRUE(std::is_final_v<OutDataUnit>); }

TEST(RecordTest, ARecordCannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<OutDataUnit>);
  EXPECT_FALSE(std::is_copy_assignable_v<OutDataUnit>);
}

TEST(RecordTest, DestructionDeletesTheAsnValueThroughItsVirtualDestructor) {
  auto rec = std::make_unique<OutDataUnit>();
  rec->m_pAsn = new AsnText("value");
  ASSERT_EQ(AsnText::Live(), 1);

  rec.reset();

  EXPECT_EQ(AsnText::Live(), 0);
}

TEST(RecordTest, DestructionFreesPlainArraysOfEverySize) {  // checked by the leak checker
  for (std::size_t const size : {1U, 8U, 27U, 511U, 512U, 513U, 4096U, 1'000'000U}) {
    auto const rec = std::make_unique<OutDataUnit>();
    rec->m_pTimeStamp = new char[size];
    rec->m_pText = new char[size];
    rec->m_pTimeStamp[size - 1] = rec->m_pText[size - 1] = 'x';

    EXPECT_EQ(rec->m_pText[size - 1], 'x');
  }
}

TEST(RecordTest, ARecordMadeAfterAFilledOneWasDeletedIsFreshAgain) {
  for (int round = 0; round < 1000; ++round) {
    auto rec = std::make_unique<OutDataUnit>();
    ASSERT_EQ(rec->m_pTimeStamp, nullptr);
    ASSERT_EQ(rec->m_pText, nullptr);
    ASSERT_EQ(rec->m_pAsn, nullptr);
    ASSERT_EQ(rec->m_nLevel, 3);
    ASSERT_EQ(rec->m_strModule, "");
    ASSERT_FALSE(rec->m_bLog || rec->m_bPrint);
    rec->m_pTimeStamp = NewText(kStamp);
    rec->m_pText = NewText("text");
    rec->m_pAsn = new AsnText("value");
    rec->m_nLevel = 0;
    rec->m_nThreadId = -1;
    rec->m_strModule = std::string(100, 'm');
    rec->m_bPrint = rec->m_bLog = true;
  }

  EXPECT_EQ(AsnText::Live(), 0);
}

TEST(RecordTest, RecordsOutliveTheThreadThatMadeThemAndDieOnAnother) {
  constexpr std::size_t kRecords = 2000;
  std::vector<std::unique_ptr<OutDataUnit>> made(kRecords);
  std::thread([&made] {
    for (std::size_t i = 0; i < kRecords; ++i) made[i].reset(NewRecord("record " + std::to_string(i)));
  }).join();

  std::string wrong;
  std::thread([&made, &wrong] {
    for (std::size_t i = 0; i < kRecords; ++i) {
      if (made[i]->m_pText != "record " + std::to_string(i)) wrong += " " + std::to_string(i);
      made[i].reset();
    }
  }).join();

  EXPECT_EQ(wrong, "") << "number of records that changed";
}

}  // namespace
}  // namespace velt::test
