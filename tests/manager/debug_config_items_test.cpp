// The readers of single items of the debug configuration: five numbers and two texts.
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/manager/debug_config.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

using DebugConfigItemsTest = DebugConfigTest;

struct NumberReader {
  char const* key;
  bool (*read)(int&, std::string const&, std::string const&, bool);
  int found_7;   // what the value 7 in a file becomes
  int fallback;  // what an absent key becomes
};

// What a reader of a number returned, and the number it left in a variable that held -7.
struct NumberRead {
  bool found = false;
  int value = -7;
};

NumberRead ReadNumber(NumberReader const& reader, std::string const& primary, std::string const& secondary,
                      bool primary_only) {
  NumberRead read;
  read.found = reader.read(read.value, primary, secondary, primary_only);
  return read;
}

NumberReader const kNumberReaders[] = {
    {"nFiltLogBufSize", &VeltDebugMgr::GetFiltLogBufSize, 7, 100},
    {"nMaxFileNum", &VeltDebugMgr::GetMaxFileNum, 7, 50},
    {"nEachFileMaxSize", &VeltDebugMgr::GetMaxFileSize, 7340032, 5242880},
    {"nEachProcessMaxZipNum", &VeltDebugMgr::GetEachProcessMaxZipNum, 7, 30},
    {"nZipFileIncludeFileNum", &VeltDebugMgr::GetZipFileIncludeFileNum, 7, 10},
};

struct TextReader {
  char const* key;
  void (*read)(std::string&, char*, int&, std::string const&, std::string const&, bool);
  char const* fallback;
};

TextReader const kTextReaders[] = {
    {"debug_level", &VeltDebugMgr::GetStrlevel, "1100"},
    {"debug_output", &VeltDebugMgr::GetStroutput, "0100"},
};

// What a reader of a text was given, and what it left there.
struct TextRead {
  std::string text = "before";
  char buffer[2048] = {};
  int length = 2048;
};

TextRead ReadText(TextReader const& reader, std::string const& primary, std::string const& secondary,
                  bool primary_only) {
  TextRead read;
  reader.read(read.text, read.buffer, read.length, primary, secondary, primary_only);
  return read;
}

// --- the five numbers ---

TEST_F(DebugConfigItemsTest, ANumberComesFromThePrimaryFileFirst) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " = 7\n");
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 9\n");
    for (bool const primary_only : {true, false}) {
      NumberRead const read = ReadNumber(reader, primary, secondary, primary_only);

      EXPECT_TRUE(read.found);
      EXPECT_EQ(read.value, reader.found_7);
    }
  }
}

TEST_F(DebugConfigItemsTest, ANumberComesFromTheSecondaryFileWhenThePrimaryHasNone) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", "other = 1\n");
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 7\n");

    NumberRead const read = ReadNumber(reader, primary, secondary, false);

    EXPECT_TRUE(read.found);
    EXPECT_EQ(read.value, reader.found_7);
  }
}

TEST_F(DebugConfigItemsTest, TheSecondaryFileIsNotReadForANumberWhenOnlyThePrimaryIsAskedFor) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", "other = 1\n");
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 7\n");

    NumberRead const read = ReadNumber(reader, primary, secondary, true);

    EXPECT_FALSE(read.found);
    EXPECT_EQ(read.value, reader.fallback);
  }
}

TEST_F(DebugConfigItemsTest, AnAbsentNumberIsFalseAndTheDefaultInItsFinalUnit) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const empty = Write("empty.cfg", "");
    for (auto const& file : {empty, Missing(), std::string(), dir_.Path()}) {
      NumberRead const read = ReadNumber(reader, file, file, false);

      EXPECT_FALSE(read.found) << file;
      EXPECT_EQ(read.value, reader.fallback) << file;
    }
  }
}

TEST_F(DebugConfigItemsTest, TheKeyOfANumberIsComparedByteForByteAndTheFirstLineCounts) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const key = reader.key;
    std::string const primary = Write("p.cfg", key + "x = 1\nx" + key + " = 2\nN" + key.substr(1) + " = 3\n" +
                                                   key + " = 7\n" + key + " = 8\n");

    NumberRead const read = ReadNumber(reader, primary, "", true);

    EXPECT_TRUE(read.found);
    EXPECT_EQ(read.value, reader.found_7);
  }
}

TEST_F(DebugConfigItemsTest, ATextThatIsNoNumberIsReadAsStrtolReadsIt) {
  struct Row {
    char const* text;
    int value;
  };
  for (Row const& row : {Row{"-1", -1}, Row{"0", 0}, Row{"2147483647", 2147483647},
                         Row{"2147483648", std::numeric_limits<int>::min()}, Row{"99999999999999999999", -1},
                         Row{"0x10", 0}, Row{"10MB", 10}, Row{"ten", 0}, Row{"", 0}, Row{"  12  ", 12}}) {
    SCOPED_TRACE(row.text);
    std::string const primary = Write("p.cfg", "nMaxFileNum = " + std::string(row.text) + "\n");
    int value = -7;

    ASSERT_TRUE(VeltDebugMgr::GetMaxFileNum(value, primary, "", true));

    EXPECT_EQ(value, row.value);
  }
}

TEST_F(DebugConfigItemsTest, TheFileSizeIsMegabytesShiftedIn32Bits) {
  struct Row {
    char const* megabytes;
    int bytes;
  };
  for (Row const& row :
       {Row{"0", 0}, Row{"1", 1048576}, Row{"5", 5242880}, Row{"8", 8388608}, Row{"50", 52428800},
        Row{"100", 104857600}, Row{"2047", 2146435072}, Row{"2048", std::numeric_limits<int>::min()},
        Row{"2049", -2146435072}, Row{"4096", 0}, Row{"4097", 1048576}, Row{"-1", -1048576}, Row{"ten", 0}}) {
    SCOPED_TRACE(row.megabytes);
    std::string const file = Write("p.cfg", "nEachFileMaxSize = " + std::string(row.megabytes) + "\n");
    int from_primary = -7;
    int from_secondary = -7;

    ASSERT_TRUE(VeltDebugMgr::GetMaxFileSize(from_primary, file, "", true));
    ASSERT_TRUE(VeltDebugMgr::GetMaxFileSize(from_secondary, Missing(), file, false));

    EXPECT_EQ(from_primary, row.bytes);
    EXPECT_EQ(from_secondary, row.bytes);
  }
}

// --- the two texts ---

TEST_F(DebugConfigItemsTest, ATextOfThePrimaryFileIsTaken) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " = 0011\n");
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 1\n");
    for (bool const primary_only : {true, false}) {
      TextRead const read = ReadText(reader, primary, secondary, primary_only);

      EXPECT_EQ(read.text, "0011");
      EXPECT_STREQ(read.buffer, "0011");
      EXPECT_EQ(read.length, 4);
    }
  }
}

TEST_F(DebugConfigItemsTest, ATextOfTheSecondaryFileAloneIsLeftInTheBufferOnly) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 0011\n");

    TextRead const read = ReadText(reader, Missing(), secondary, false);

    EXPECT_EQ(read.text, "before");
    EXPECT_STREQ(read.buffer, "0011");
  }
}

TEST_F(DebugConfigItemsTest, TheSecondaryFileIsNotReadForATextWhenOnlyThePrimaryIsAskedFor) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 0011\n");

    TextRead const read = ReadText(reader, Missing(), secondary, true);

    EXPECT_EQ(read.text, reader.fallback);
    EXPECT_STREQ(read.buffer, "");
    EXPECT_EQ(read.length, 2048) << "set back after the failed look-up";
  }
}

TEST_F(DebugConfigItemsTest, AnAbsentTextIsTheDefault) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    for (bool const primary_only : {true, false}) {
      EXPECT_EQ(ReadText(reader, Missing(), Missing(), primary_only).text, reader.fallback);
    }
  }
}

TEST_F(DebugConfigItemsTest, AnEmptyTextIsAValueToo) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " =\n");

    EXPECT_EQ(ReadText(reader, primary, "", true).text, "");
  }
}

TEST_F(DebugConfigItemsTest, ATextThatDoesNotFitTheCallersBufferCountsAsAbsent) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " = 0011\n");
    std::string fits = "before";
    std::string too_long = "before";
    char buffer[2048] = {};
    int five = 5;
    int four = 4;

    reader.read(fits, buffer, five, primary, "", true);
    reader.read(too_long, buffer, four, primary, "", true);

    EXPECT_EQ(fits, "0011");
    EXPECT_EQ(too_long, reader.fallback);
  }
}

TEST_F(DebugConfigItemsTest, ANullBufferIsAnAbsentText) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " = 0011\n");
    std::string text = "before";
    int length = 2048;

    reader.read(text, nullptr, length, primary, "", true);

    EXPECT_EQ(text, reader.fallback);
  }
}

}  // namespace
}  // namespace velt::test
