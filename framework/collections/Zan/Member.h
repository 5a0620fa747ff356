#pragma once

namespace Zan {

/// What a keyed collection does for a member that a deletion has just unlinked: the member, which still
/// knows its notifier and its owner, tells that owner (`zanLeft`). Deletion by key, by member, through an
/// iterator and of all members come through here, each member once.
template <class V>
void memberLeft(V& member) {
  if constexpr (requires { member.zanLeft(); }) member.zanLeft();
}

/// The same for a member that loses its collection because the owner is being destroyed: nobody is told.
template <class V>
void memberOrphaned(V& member) {
  if constexpr (requires { member.zanOrphaned(); }) member.zanOrphaned();
}

}  // namespace Zan
