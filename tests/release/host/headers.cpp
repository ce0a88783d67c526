// All public headers in one host, which has no exceptions and no run-time types of its own.
#include "velt/channel.h"
#include "velt/config.h"
#include "velt/export.h"
#include "velt/manager.h"
#include "velt/problem.h"
#include "velt/process.h"
#include "velt/types.h"

int main() { return VeltAppIsExit() ? 1 : 0; }
