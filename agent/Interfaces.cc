#include "inside/Interfaces.h"

#include <algorithm>

namespace mrib {

std::optional<Lumo::IpAddr> Intf::rpfAddress() const {
  std::optional<Lumo::IpAddr> lowest;
  for (const Held& held : addresses) {
    if (!held.secondary && (!lowest || held.address < *lowest)) lowest = held.address;
  }
  return lowest;
}

Interfaces::Interfaces()
    : directory_(Zan::create<Interface::AllIntfStatusDir>("intfStatus")),
      ipStatus_(Zan::create<Ip::Status>("ipStatus")),
      info_(Routing::Multicast::Rib::interfaceInfoFactory()) {
  info_->ipStatusIs(ipStatus_);
  info_->statusIs(directory_);
}

const Intf* Interfaces::find(U32 index) const {
  const auto found = intfs_.find(index);
  return found == intfs_.end() ? nullptr : &found->second;
}

const Intf* Interfaces::find(const std::string& name) const {
  const auto found = byName_.find(name);
  return found == byName_.end() ? nullptr : find(found->second);
}

void Interfaces::tell(U32 index, const Intf& intf, Transaction& into) {
  if (intf.exists()) into.link(intf.link);
  for (const Intf::Held& held : intf.addresses)
    into.address({index, Lumo::IpGenAddr(held.address), held.secondary});
}

// ---- Staging ----

Interfaces::Staged Interfaces::stage(const std::vector<Transaction::LinkOp>& ops) const {
  Staged staged;
  for (const Transaction::LinkOp& op : ops) {
    const auto [at, isFirst] = staged.try_emplace(op.value.index);
    Intf& intf = at->second;
    if (const Intf* present = isFirst ? find(op.value.index) : nullptr) intf = *present;
    const auto held = std::find_if(intf.addresses.begin(), intf.addresses.end(),
                                   [&](const Intf::Held& h) { return h.address == op.address; });
    switch (op.kind) {
      case Transaction::LinkOp::Kind::linkIs:
        intf.link = op.value;
        break;
      case Transaction::LinkOp::Kind::linkDel:
        intf = {};
        break;
      case Transaction::LinkOp::Kind::addressIs:
        if (held == intf.addresses.end()) {
          intf.addresses.push_back({op.address, op.secondary});
        } else {
          held->secondary = op.secondary;
        }
        break;
      case Transaction::LinkOp::Kind::addressDel:
        if (held != intf.addresses.end()) intf.addresses.erase(held);
        break;
    }
  }
  return staged;
}

std::vector<std::string> Interfaces::faults(const Staged& staged) const {
  std::vector<std::string> faults;
  std::map<std::string_view, U32> names;
  const auto give = [&](const std::string& name, U32 index) {
    const auto [at, isFree] = names.try_emplace(name, index);
    if (isFree) return;
    faults.push_back("links " + std::to_string(at->second) + " and " + std::to_string(index) +
                     " have the same name");
  };
  for (const auto& [index, intf] : staged) {
    if (intf.exists()) give(intf.link.name, index);
  }
  for (const auto& [index, intf] : staged) {
    const auto holder = intf.exists() ? byName_.find(intf.link.name) : byName_.end();
    if (holder != byName_.end() && !staged.contains(holder->second)) give(holder->first, holder->second);
  }
  return faults;
}

bool Interfaces::replaces(U32 index, const Intf& staged) const {
  const Intf* present = find(index);
  return (present ? present->link.name : std::string()) != staged.link.name;
}

// ---- The entities ----

void Interfaces::apply(const Staged& staged) {
  for (const auto& [index, intf] : staged) {
    if (const Intf* present = find(index); present && replaces(index, intf)) {
      byName_.erase(present->link.name);
      directory_->intfStatusDel(Lumo::IntfId(index));
    }
  }
  for (const auto& [index, intf] : staged) applyTo(index, intf);
}

void Interfaces::applyTo(U32 index, const Intf& staged) {
  const Lumo::IntfId id(index);
  if (staged.exists()) {
    byName_[staged.link.name] = index;
    directory_->intfStatusIs(id, staged.link.name);
  }
  const auto address = staged.rpfAddress();
  if (address) {
    ipStatus_->intfAddrIs(id, *address);
  } else {
    ipStatus_->intfAddrDel(id);
  }
  if (staged.isNothing()) {
    intfs_.erase(index);
  } else {
    intfs_[index] = staged;
  }
}

}  // namespace mrib
