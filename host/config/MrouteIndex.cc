#include "MrouteIndex.h"

#include <algorithm>
#include <bit>

#include "Zan/Hash.h"

namespace host {

namespace {

constexpr U64 hashHalf = ~U64{0} << 32;
constexpr U64 removed = 0xFFFFFFFF;  // in place of the place

U64 hashOf(const MrouteLine& line) {
  U64 rpf = 0;
  if (const auto* address = std::get_if<Lumo::IpAddr>(&line.rpf)) {
    rpf = address->hash();
  } else {
    rpf = std::hash<std::string>{}(std::get<std::string>(line.rpf));
  }
  return Zan::mix(line.prefix.hash() ^ line.preference, rpf);
}

U64 slotFor(U64 hash, U32 place) {
  return (hash & hashHalf) | (place + 1);
}

}  // namespace

bool isSame(const MrouteLine& a, const MrouteLine& b) {
  return a.prefix == b.prefix && a.preference == b.preference && a.rpf == b.rpf;
}

MrouteIndex::MrouteIndex(const std::vector<MrouteLine>& lines) : lines_(lines) {
  grow(std::max<std::size_t>(lines.size(), 8));
  for (U32 place = 0; place < lines.size(); ++place) enter(place);
}

/// The slot with the same route, or a free one where it would be.
std::size_t MrouteIndex::slotOf(const MrouteLine& line, U64 hash) const {
  std::size_t slot = home(hash);
  for (; slots_[slot] != 0; slot = next(slot)) {
    const U64 entry = slots_[slot];
    if (((entry ^ hash) & hashHalf) != 0 || (entry & removed) == removed) continue;
    if (isSame(lines_[static_cast<U32>(entry) - 1], line)) break;
  }
  return slot;
}

U32 MrouteIndex::find(const MrouteLine& line) const {
  return static_cast<U32>(slots_[slotOf(line, hashOf(line))]) - 1;
}

U32 MrouteIndex::enter(U32 place) {
  if ((used_ + 1) * 2 > slots_.size()) grow(slots_.size());
  const U64 hash = hashOf(lines_[place]);
  const std::size_t slot = slotOf(lines_[place], hash);
  if (slots_[slot] == 0) {
    slots_[slot] = slotFor(hash, place);
    ++used_;
  }
  return static_cast<U32>(slots_[slot]) - 1;
}

void MrouteIndex::remove(const MrouteLine& line) {
  U64& entry = slots_[slotOf(line, hashOf(line))];
  if (entry != 0) entry |= removed;
}

/// Makes room for so many. The first bits of a hash are in the slots, so no line is looked at.
void MrouteIndex::grow(std::size_t count) {
  std::vector<U64> before(std::bit_ceil(count * 2), 0);
  before.swap(slots_);
  shift_ = std::countl_zero(slots_.size() - 1);
  used_ = 0;
  for (const U64 entry : before) {
    if (entry == 0 || (entry & removed) == removed) continue;
    std::size_t slot = home(entry);
    while (slots_[slot] != 0) slot = next(slot);
    slots_[slot] = entry;
    ++used_;
  }
}

}  // namespace host
