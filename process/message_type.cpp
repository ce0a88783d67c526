// The printable names of the one-byte message types.
#include "velt/process.h"

namespace {

constexpr unsigned char kLastNamedType = 34;

}  // namespace

// Numbers without a name have the empty text.
char const* const g_vecVeltMsgTypeString[35] = {
    "",                    // 0
    "REQUESTBC",           // 1
    "RESPONSEBC",          // 2
    "REGISTER",            // 3
    "RESTART",             // 4
    "ANSFRAME",            // 5
    "REQUESTNBC",          // 6
    "RESPONSENBC",         // 7
    "TIMER",               // 8
    "EXIT",                // 9
    "SVCTYPEINFO_REQ_V3",  // 10
    "",                    // 11
    "",                    // 12
    "",                    // 13
    "",                    // 14
    "",                    // 15
    "SHAKEHAND",           // 16
    "RECONNECT",           // 17
    "GET_COUNTER_REQ",     // 18
    "GET_COUNTER_RSP",     // 19
    "INQUIRE",             // 20
    "GET_SVR_STATE",       // 21
    "GET_TASKMGR_STATE",   // 22
    "CORE_DUMP_CMD",       // 23
    "MULTCMD_REG",         // 24
    "HEARTBEAT_REQ",       // 25
    "HEARTBEAT_RSP",       // 26
    "DISPFAIL_RSP",        // 27
    "SVCTYPEINFO_REQ",     // 28
    "QUERY_REQ",           // 29
    "QUERY_RSP",           // 30
    "",                    // 31
    "",                    // 32
    "",                    // 33
    "MSG_TRNING_MSG",      // 34
};

char const* VeltGetMsgTypeString(unsigned char type) {
  return type > kLastNamedType ? "unknow" : g_vecVeltMsgTypeString[type];
}
