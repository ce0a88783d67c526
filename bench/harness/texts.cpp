#include "harness/texts.h"

#include <array>
#include <cstdio>

namespace velt::bench {

Texts::Texts(bool varied) {
  std::size_t const count = varied ? 32'768 : kModules;
  for (std::size_t i = 0; i < count; ++i) texts_.push_back(varied ? Varied() : Plain(i));
}

std::string Texts::Plain(std::size_t i) {
  return std::string("the order of ") + Customer(i) + " was accepted, priced and booked";
}

std::string Texts::Varied() {
  std::array<char, kMessageCapacity> text{};
  char* const to = text.data();
  std::size_t const room = text.size();
  unsigned const a = Below(1'000'000);
  unsigned const b = Below(4'000'000'000U);
  unsigned const c = Below(250);
  unsigned const d = Below(5'000);
  switch (Below(8)) {
    case 0:
      (void)std::snprintf(to, room, "GET /api/v2/orders/%u 200 in %u ms for 10.3.%u.%u", a, d, c, b % 254);
      break;
    case 1:
      (void)std::snprintf(to, room, "session %08x opened for user-%u through gate-%u.east", b, a, c);
      break;
    case 2:
      (void)std::snprintf(to, room, "cache miss for item:%u, loaded in %u.%u ms, now %u entries", a, d,
                          c % 10, b % 90'000);
      break;
    case 3:
      (void)std::snprintf(to, room, "retry %u of 5 for node-%u.west:%u, connection reset by peer", c % 5 + 1,
                          c, 1024 + d);
      break;
    case 4:
      (void)std::snprintf(to, room, "payment %08x of %u.%02u EUR was authorised by bank-%u", b, d, c % 100,
                          c);
      break;
    case 5:
      (void)std::snprintf(to, room, "queue depth %u, oldest waits %u ms, consumer c-%u is behind", a % 2'000,
                          d, c);
      break;
    case 6:
      (void)std::snprintf(to, room, "wrote %u bytes to /var/spool/batch/20261115/part-%05u.dat",
                          b % 9'000'000, a % 100'000);
      break;
    default:
      (void)std::snprintf(to, room, "checksum %08x%04x matches for parcel P-%07u of depot %u", b, d, a, c);
      break;
  }
  return text.data();
}

}  // namespace velt::bench
