/* The states of a transaction, and more ways than there is room for. */
#include <stdio.h>

#include "check.h"

static void test_version(void) {
  char text[32];
  const uint32_t v = mrib_version();
  CHECK(v == MRIB_VERSION);
  snprintf(text, sizeof text, "%u.%u.%u", v >> 16, v >> 8 & 0xFF, v & 0xFF);
  CHECK(strcmp(text, MRIB_PROJECT_VERSION) == 0);
}

static void test_states(struct mrib_agent* agent) {
  const struct mrib_link link = {MRIB_SIZE(mrib_link), .index = 1, .name = "eth1"};
  struct mrib_status status = {MRIB_SIZE(mrib_status)};
  CHECK_FAILS(mrib_link_set(agent, &link), MRIB_ERROR_STATE, "mrib_begin opens one");
  CHECK_FAILS(mrib_commit(agent, NULL), MRIB_ERROR_STATE, "no transaction is open");
  CHECK_FAILS(mrib_abort(agent), MRIB_ERROR_STATE, "no transaction is open");
  CHECK_OK(mrib_begin(agent));
  CHECK_FAILS(mrib_begin(agent), MRIB_ERROR_STATE, "open already");
  CHECK_OK(mrib_status_get(agent, &status));
  CHECK(status.flags == MRIB_OPEN && status.generation == 1 && status.route_count == 3 && status.healed == 0);
  CHECK_OK(mrib_mroute_del_all(agent));
  CHECK_FAILS(mrib_link_del(agent, 0), MRIB_ERROR_ARGUMENT, "");
  CHECK_OK(mrib_abort(agent)); /* with its fault */
  CHECK_OK(mrib_begin(agent));
  CHECK_OK(mrib_commit(agent, NULL));
  CHECK_OK(mrib_status_get(agent, &status));
  CHECK(status.flags == 0 && status.generation == 2 && status.route_count == 3);
}

/* 130 ways, of which 128 are kept; the caller has room for two. */
static void test_ways(struct mrib_agent* agent) {
  struct mrib_next_hop ways[130] = {{.link = 1}}, hops[3] = {{.link = 99}};
  const struct mrib_unicast route = {MRIB_SIZE(mrib_unicast), .type = MRIB_CONNECTED,
                                     .preference = 5,         .prefix = prefix("10.0.0.0/8"),
                                     .next_hop_count = 130,   .next_hops = ways};
  struct mrib_update update = {MRIB_SIZE(mrib_update)};
  struct mrib_route before = {MRIB_SIZE(mrib_route), .next_hops = hops, .next_hop_room = 2}, after = before;
  for (uint8_t i = 1; i < 130; ++i) {
    ways[i] = (struct mrib_next_hop){.neighbour = ip("192.0.2.0"), .link = 1};
    ways[i].neighbour.bytes[3] = i;
  }
  hops[2].link = 99;
  CHECK_OK(mrib_begin(agent));
  CHECK_OK(mrib_route_set(agent, &route));
  CHECK_OK(mrib_commit(agent, &update));
  CHECK(update.change_count == 1 && update.note_count == 1 && update.generation == 3 && update.flags == 0);
  CHECK(strstr(mrib_note(agent, 0), "route 10.0.0.0/8 has 130 next hops") && mrib_note(agent, 1) == NULL);
  CHECK_OK(mrib_change_at(&update, 0, &before, &after));
  CHECK(before.type == 0 && before.next_hop_count == 0 && after.type == MRIB_CONNECTED &&
        after.preference == 5);
  CHECK(after.next_hop_count == 128 && after.next_hop_room == 2 && hops[2].link == 99);
  CHECK(mrib_change_at(&update, 1, &before, &after) == MRIB_NOT_FOUND);
}

void test_use(void) {
  struct mrib_agent* agent = router();
  test_version();
  test_states(agent);
  test_ways(agent);
  CHECK_OK(mrib_free(agent));
}
