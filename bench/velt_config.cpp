// Configuration look-ups beside a plain loop over the lines of the same file.
//
//   velt_config run --dir D --lines N --repeats K
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "velt/config.h"

#include "harness/clock.h"
#include "harness/options.h"

namespace velt::bench {
namespace {

std::string NameOf(std::size_t item) { return "service_item_" + std::to_string(100'000 + item); }

// Mostly items, with the comments and blank lines that such files have.
void WriteConfig(std::string const& path, std::size_t lines) {
  std::ofstream out(path);
  for (std::size_t i = 0; i + 1 < lines; ++i) {
    if (i % 10 == 0) {
      out << "# what follows belongs together\n";
    } else if (i % 10 == 9) {
      out << '\n';
    } else {
      out << NameOf(i) << " = value of item " << i << '\n';
    }
  }
  out << NameOf(lines) << " = 4711\n";
  if (!out.flush()) Fail("cannot write " + path);
}

template <typename Work>
std::uint32_t TimeOf(Work work) {
  std::int64_t const begin = NowNs();
  work();
  return static_cast<std::uint32_t>(NowNs() - begin);
}

void Measure(Options const& options) {
  std::size_t const lines = options.Count("lines", 1'000);
  std::size_t const repeats = options.Count("repeats", 100);
  std::string const path = options.Scratch() + "/items.cfg";
  WriteConfig(path, lines);
  std::string const last = NameOf(lines);

  std::vector<std::uint32_t> all_items;
  std::vector<std::uint32_t> last_item;
  std::vector<std::uint32_t> plain_loop;
  for (std::size_t i = 0; i < repeats; ++i) {
    std::map<std::string, std::string> items;
    all_items.push_back(TimeOf([&] { (void)VeltAllCfgItem(items, path, ""); }));
    if (items.empty() || items.rbegin()->second.empty() || items[last] != "4711") Fail("items are missing");

    int value = 0;
    last_item.push_back(TimeOf([&] { (void)VeltGetCfgInt(last.c_str(), value, path.c_str()); }));
    if (value != 4711) Fail("the last item was not found");

    std::size_t seen = 0;
    plain_loop.push_back(TimeOf([&] {
      std::ifstream in(path);
      for (std::string line; std::getline(in, line);) ++seen;
    }));
    if (seen != lines) Fail("the plain loop missed lines");
  }
  Result result;
  result.Add("all_items_us", Summarize(all_items).p50 / 1e3);
  result.Add("last_item_us", Summarize(last_item).p50 / 1e3);
  result.Add("getline_us", Summarize(plain_loop).p50 / 1e3);
  result.Print();
}

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  velt::bench::Options const options(argc, argv);
  velt::bench::Measure(options);
  return 0;
}
