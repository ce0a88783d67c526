#include "velt/manager.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  if (!manager->Init("host_", "", argv[1], "host 1.0\n", false, false)) return 1;
  manager->RegSubModuleInfo("net", std::bitset<32>(0xF), std::bitset<32>(2), false);
  manager->Printf(VeltLogLevel(3), VeltInterString(std::string("net")), "found by %s", argv[2]);
  return VeltDebugMgr::Destroy();
}
