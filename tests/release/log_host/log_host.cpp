#include "velt/log.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  if (!VeltDebugMgr::Instance()->Init("host_", "", argv[1], "host 1.0\n", false, false)) return 1;
  velt::Module const net("net");
  if (!net.Register(velt::UpTo(velt::kInfo), velt::kToFile)) return 1;
  net.Info("found by {}", argv[2]);
  return VeltDebugMgr::Destroy();
}
