// A host process for scenarios that kill it, or start it under another clock or tracer.
//
//   fault_host directory=D prefix=P side=S [run=0] [producers=2] [records=1000] [pause_us=0] [max_bytes=N]
//              [keep=30] [ring=0] [length=N] [manager=1] [sub=NAME] [hold=1]
//              [stalled=1] [queue=N]
//
// Prints "ready" before it traces and "traced" when all records were traced; with hold=1 it then waits for
// its standard input to end. Prints "longest_us N", leaves its counts in side/counts.<run> and ends in order:
// exit code 0. With stalled=1 nothing is
// written before that; queue=N gives the channel's queue room for so many records.
#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "velt/manager.h"

#include "tests/faults/counted.h"
#include "tests/faults/host.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace {

using Arguments = std::map<std::string, std::string>;

Arguments Parse(int argc, char** argv) {
  Arguments arguments;
  for (int i = 1; i < argc; ++i) {
    std::string const word = argv[i];
    std::size_t const equal = word.find('=');
    if (equal == std::string::npos) std::exit(2);
    arguments[word.substr(0, equal)] = word.substr(equal + 1);
  }
  return arguments;
}

unsigned Number(Arguments const& arguments, char const* name, unsigned usual) {
  auto const found = arguments.find(name);
  return found == arguments.end() ? usual : static_cast<unsigned>(std::stoul(found->second));
}

std::string Text(Arguments const& arguments, char const* name) {
  auto const found = arguments.find(name);
  return found == arguments.end() ? "" : found->second;
}

void Say(std::string const& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

velt::faults::ProducerSetup SetupOf(Arguments const& arguments) {
  velt::faults::ProducerSetup setup;
  setup.side_directory = Text(arguments, "side");
  setup.run = Number(arguments, "run", 0);
  setup.producers = Number(arguments, "producers", 2);
  setup.records = Number(arguments, "records", 1'000);
  setup.pause = std::chrono::microseconds(Number(arguments, "pause_us", 0));
  if (arguments.count("length") != 0) {
    setup.length = [length = Number(arguments, "length", 0)](unsigned /*sequence*/) { return length; };
  }
  return setup;
}

void Produce(Arguments const& arguments, velt::faults::TraceCall const& trace) {
  velt::faults::Producers producers(SetupOf(arguments), trace);
  Say("ready");
  producers.Wait();
  Say("traced");
  char byte = 0;
  if (Number(arguments, "hold", 0) != 0)
    while (read(0, &byte, 1) > 0) {
    }
  Say("longest_us " + std::to_string(producers.LongestCall().count() / 1000));
}

void LeaveCounts(Arguments const& arguments, VeltTraceCounts const& counts) {
  velt::faults::WriteCounts(Text(arguments, "side"), Number(arguments, "run", 0), counts);
}

int RunManager(Arguments const& arguments) {
  std::string const config = Text(arguments, "side") + "/host.cfg";
  velt::test::WriteFile(config, "nEachFileMaxSize=1\nnEachProcessMaxZipNum=" +
                                    std::to_string(Number(arguments, "keep", 30)) + "\n");
  auto* const manager = VeltDebugMgr::Instance();
  if (!manager->Init(Text(arguments, "prefix"), config, Text(arguments, "directory"), "header\n", false,
                     false))
    return 1;
  Produce(arguments, velt::faults::ToManager(Text(arguments, "sub")));
  std::string const sub = Text(arguments, "sub");
  std::map<std::string, VeltTraceCounts> counts;
  if (!manager->Flush(velt::faults::kFlushMs) || !manager->GetCounts(counts)) return 1;
  LeaveCounts(arguments, counts[Text(arguments, "prefix") + (sub.empty() ? "" : sub + "_")]);
  return VeltDebugMgr::Destroy() == 0 ? 0 : 1;
}

int RunChannel(Arguments const& arguments) {
  velt::test::ChannelSetup setup(Text(arguments, "directory"));
  setup.prefix = Text(arguments, "prefix");
  setup.ring = Number(arguments, "ring", 0);
  setup.max_bytes = Number(arguments, "max_bytes", setup.max_bytes);
  setup.keep = Number(arguments, "keep", setup.keep);
  auto channel = velt::test::MakeChannel(setup);
  if (unsigned const room = Number(arguments, "queue", 0); room != 0) {
    velt::test::OutputQueueOf(*channel).high_water_mark(room * sizeof(OutDataUnit));
    velt::test::OutputQueueOf(*channel).low_water_mark(room * sizeof(OutDataUnit));
  }
  velt::test::Gate gate;
  if (Number(arguments, "stalled", 0) != 0) velt::test::StallAt(gate, *channel);
  Produce(arguments, velt::faults::ToChannel(*channel));
  gate.Open();
  (void)channel->Flush(velt::faults::kFlushMs);  // what it leaves is in the counts
  LeaveCounts(arguments, channel->Counts());
  channel.reset();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments const arguments = Parse(argc, argv);
  if (Text(arguments, "side").empty()) return 2;
  return Number(arguments, "manager", 0) != 0 ? RunManager(arguments) : RunChannel(arguments);
}
