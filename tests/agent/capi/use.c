/* Transactions, answers and reasons. */
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

static void test_answers(struct mrib_agent* agent) {
  struct mrib_next_hop hops[3];
  struct mrib_route route = {MRIB_SIZE(mrib_route), .next_hops = hops, .next_hop_room = 3};
  const struct mrib_ip source = ip("203.0.113.9"), near = ip("192.0.2.9"), nowhere = ip("10.0.0.1");
  const struct mrib_ip neighbour = ip("192.0.2.1");
  const struct mrib_prefix net = prefix("203.0.113.0/24"), half = prefix("203.0.113.0/25");
  CHECK_OK(mrib_rpf(agent, &source, &route));
  CHECK(route.type == MRIB_MULTICAST_STATIC && route.preference == 1 && route.next_hop_count == 1);
  CHECK(memcmp(&route.prefix, &net, sizeof net) == 0 && hops[0].link == 1);
  CHECK(memcmp(&hops[0].neighbour, &neighbour, sizeof neighbour) == 0);
  CHECK_OK(mrib_rpf(agent, &near, &route));
  CHECK(route.type == MRIB_CONNECTED && hops[0].neighbour.family == MRIB_NONE && hops[0].link == 1);
  CHECK(mrib_rpf(agent, &nowhere, &route) == MRIB_NOT_FOUND);
  CHECK_OK(mrib_route_get(agent, &net, &route));
  CHECK(mrib_route_get(agent, &half, &route) == MRIB_NOT_FOUND);
  CHECK_OK(mrib_route_at(agent, 2, &route));
  CHECK(mrib_route_at(agent, 3, &route) == MRIB_NOT_FOUND);
  struct mrib_link link = {MRIB_SIZE(mrib_link)};
  CHECK_OK(mrib_link_get(agent, 2, &link));
  CHECK(link.index == 2 && strcmp(link.name, "eth2") == 0 && link.flags == 0);
  CHECK(mrib_link_get(agent, 3, &link) == MRIB_NOT_FOUND);
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

/* A circle of two routes is refused with both named, and an address in an MRIB route that has other faults
 * too. */
static void test_circle(struct mrib_agent* agent) {
  struct mrib_mroute m = {MRIB_SIZE(mrib_mroute), .preference = 1, .prefix = prefix("10.1.0.0/16"),
                          .rpf_address = ip("10.2.0.1"), .origin = 11};
  uint64_t origins[3] = {0, 0, 7};
  CHECK_OK(mrib_begin(agent));
  CHECK_OK(mrib_mroute_set(agent, &m));
  m.prefix = prefix("10.2.0.0/16"), m.rpf_address = ip("10.1.0.1"), m.origin = 12;
  CHECK_OK(mrib_mroute_set(agent, &m));
  CHECK_FAILS(mrib_commit(agent, NULL), MRIB_ERROR_REFUSED, "line 11");
  CHECK(mrib_error_count() == 1 && mrib_error_origins(0, origins, 2) == 2 && origins[0] + origins[1] == 23);
  CHECK(mrib_error_origins(0, NULL, 0) == 2 && mrib_error_origins(1, origins, 2) == 0 && origins[2] == 7);
  CHECK(mrib_error_text(1) == NULL);
}

struct seen {
  uint32_t count;
  uint32_t reasons; /* a bit for each */
  uint32_t flags;   /* of all */
  struct mrib_unresolved last;
};

static int see(void* context, const struct mrib_unresolved* u) {
  struct seen* seen = context;
  ++seen->count;
  seen->reasons |= 1u << u->reason;
  seen->flags |= u->flags;
  seen->last = *u;
  CHECK(u->size == sizeof *u && u->mroute->size == sizeof *u->mroute && strlen(u->text) > 0);
  return u->reason == MRIB_REASON_COVERED ? 42 : 0;
}

static int count(void* context, const struct mrib_mroute* m) {
  ++*(uint64_t*)context;
  return m->origin == 2 ? 7 : 0;
}

/* One configured route for each reason but those that need a moment of the engine, and stops at the last. */
static void test_unresolved(struct mrib_agent* agent) {
  static const struct {
    const char *prefix, *address, *name;
  } lines[] = {{"10.1.0.0/16", NULL, "eth9"},       {"10.1.0.0/16", NULL, "eth3"},
               {"10.1.0.0/16", "172.16.0.1", NULL}, {"10.1.0.0/16", "9.9.9.9", NULL},
               {"192.0.2.0/24", "192.0.2.1", NULL}, {"198.51.100.64/26", "198.51.100.1", NULL}};
  const struct mrib_next_hop attached = {.link = 1};
  const struct mrib_unicast all = {MRIB_SIZE(mrib_unicast), .type = MRIB_CONNECTED,
                                   .prefix = prefix("0.0.0.0/0"), .next_hop_count = 1,
                                   .next_hops = &attached};
  const struct mrib_link link = {MRIB_SIZE(mrib_link), .index = 3, .name = "eth3",
                                 .flags = MRIB_LINK_NO_CARRIER};
  const struct mrib_prefix covered = prefix("198.51.100.0/24"), ten = prefix("10.0.0.0/8");
  struct seen seen = {0};
  uint64_t mroutes = 0;
  CHECK_OK(mrib_visit_unresolved(agent, see, &seen));
  CHECK(seen.count == 1 && seen.last.reason == MRIB_REASON_WAITING && seen.last.installed == 1);
  CHECK(mrib_visit_mroutes(agent, count, &mroutes) == 7 && mroutes == 2);
  CHECK_OK(mrib_begin(agent));
  CHECK_OK(mrib_route_del(agent, &ten));
  CHECK_OK(mrib_link_set(agent, &link));
  for (size_t i = 0; i < sizeof lines / sizeof *lines; ++i) {
    struct mrib_mroute m = {MRIB_SIZE(mrib_mroute), .preference = 1, .prefix = prefix(lines[i].prefix),
                            .rpf_interface = lines[i].name};
    if (lines[i].address) m.rpf_address = ip(lines[i].address);
    CHECK_OK(mrib_mroute_set(agent, &m));
  }
  CHECK_OK(mrib_commit(agent, NULL));
  CHECK(mrib_visit_unresolved(agent, see, &seen) == 42);
  CHECK(memcmp(&seen.last.match, &covered, sizeof covered) == 0 && seen.last.address.bytes[3] == 1);
  CHECK(seen.reasons ==
        (1u << MRIB_REASON_NO_INTERFACE | 1u << MRIB_REASON_NO_ADDRESS | 1u << MRIB_REASON_NO_ROUTE |
         1u << MRIB_REASON_ITSELF | 1u << MRIB_REASON_COVERED | 1u << MRIB_REASON_WAITING));
  CHECK_OK(mrib_begin(agent));
  CHECK_OK(mrib_route_set(agent, &all));
  CHECK_OK(mrib_commit(agent, NULL));
  CHECK(seen.flags == MRIB_RPF_LINK_DOWN);
  seen.reasons = 0;
  CHECK(mrib_visit_unresolved(agent, see, &seen) == 42);
  CHECK(seen.reasons & 1u << MRIB_REASON_ONLY_DEFAULT);
}

void test_use(void) {
  struct mrib_agent* agent = router();
  test_version();
  test_states(agent);
  test_answers(agent);
  test_ways(agent);
  test_circle(agent);
  test_unresolved(agent);
  CHECK_OK(mrib_free(agent));
}
