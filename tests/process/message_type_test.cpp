#include <cstddef>
#include <iterator>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "velt/process.h"

namespace velt::test {
namespace {

// What each of the 256 types prints as, eight in a row; the comments count.
// clang-format off
constexpr char const* kNames[] = {
    "", "REQUESTBC", "RESPONSEBC", "REGISTER", "RESTART", "ANSFRAME", "REQUESTNBC", "RESPONSENBC",  // 0
    "TIMER", "EXIT", "SVCTYPEINFO_REQ_V3", "", "", "", "", "",  // 8
    "SHAKEHAND", "RECONNECT", "GET_COUNTER_REQ", "GET_COUNTER_RSP", "INQUIRE", "GET_SVR_STATE", "GET_TASKMGR_STATE", "CORE_DUMP_CMD",  // 16
    "MULTCMD_REG", "HEARTBEAT_REQ", "HEARTBEAT_RSP", "DISPFAIL_RSP", "SVCTYPEINFO_REQ", "QUERY_REQ", "QUERY_RSP", "",  // 24
    "", "", "MSG_TRNING_MSG", "unknow", "unknow", "unknow", "unknow", "unknow",  // 32
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 40
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 48
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 56
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 64
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 72
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 80
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 88
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 96
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 104
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 112
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 120
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 128
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 136
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 144
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 152
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 160
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 168
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 176
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 184
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 192
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 200
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 208
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 216
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 224
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 232
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 240
    "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow", "unknow",  // 248
};
// clang-format on

static_assert(std::size(kNames) == 256);
static_assert(std::size(g_vecVeltMsgTypeString) == 35);
static_assert(std::is_const_v<std::remove_reference_t<decltype(g_vecVeltMsgTypeString[0])>>);

TEST(MessageTypeTest, EveryTypeHasItsName) {
  for (std::size_t type = 0; type < 256; ++type) {
    EXPECT_STREQ(VeltGetMsgTypeString(static_cast<unsigned char>(type)), kNames[type]) << "type " << type;
  }
}

TEST(MessageTypeTest, TheTableHoldsTheNamesAndNoNullPointer) {
  for (std::size_t type = 0; type < 35; ++type) {
    ASSERT_NE(g_vecVeltMsgTypeString[type], nullptr) << "type " << type;
    EXPECT_STREQ(g_vecVeltMsgTypeString[type], kNames[type]) << "type " << type;
  }
}

TEST(MessageTypeTest, ANamedTypeGivesTheEntryOfTheTableItself) {
  EXPECT_EQ(VeltGetMsgTypeString(0), g_vecVeltMsgTypeString[0]);
  EXPECT_EQ(VeltGetMsgTypeString(9), g_vecVeltMsgTypeString[9]);
  EXPECT_EQ(VeltGetMsgTypeString(34), g_vecVeltMsgTypeString[34]);
}

TEST(MessageTypeTest, NamesStayValid) {
  char const* const exit_name = VeltGetMsgTypeString(9);
  char const* const unknown_name = VeltGetMsgTypeString(35);

  std::thread([] { VeltGetMsgTypeString(200); }).join();

  EXPECT_STREQ(exit_name, "EXIT");
  EXPECT_STREQ(unknown_name, "unknow");
}

}  // namespace
}  // namespace velt::test
