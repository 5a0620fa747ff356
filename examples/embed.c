/* A host in C: a router with two links, a multicast route with a backup and one that resolves through it;
 * then the first link fails. */
#include <mrib.h>
#include <stdio.h>
#include <stdlib.h>

static struct mrib_agent* agent;

static struct mrib_ip ip(const char* text) {
  struct mrib_ip ip;
  if (mrib_ip_parse(text, &ip) != MRIB_OK) abort();
  return ip;
}
static struct mrib_prefix prefix(const char* text) {
  struct mrib_prefix prefix;
  if (mrib_prefix_parse(text, &prefix) != MRIB_OK) abort();
  return prefix;
}

static void print_route(const char* what, const struct mrib_route* r) {
  char text[MRIB_PREFIX_TEXT];
  printf("%s %s preference %u", what, mrib_prefix_text(&r->prefix, text, sizeof text), r->preference);
  for (uint32_t i = 0; i < r->next_hop_count && i < r->next_hop_room; ++i) {
    struct mrib_link link = {MRIB_SIZE(mrib_link)};
    mrib_link_get(agent, r->next_hops[i].link, &link);
    if (r->next_hops[i].neighbour.family == MRIB_NONE)
      printf(" attached on %s", link.name);
    else
      printf(" via %s on %s", mrib_ip_text(&r->next_hops[i].neighbour, text, sizeof text), link.name);
  }
  puts("");
}

static void changed(void* context, const struct mrib_update* update) {
  struct mrib_next_hop hops[4];
  struct mrib_route before = {MRIB_SIZE(mrib_route)};
  struct mrib_route after = {MRIB_SIZE(mrib_route), .next_hops = hops, .next_hop_room = 4};
  (void)context;
  for (uint32_t i = 0; mrib_change_at(update, i, &before, &after) == MRIB_OK; ++i)
    print_route(before.type == 0 ? "  new:" : after.type == 0 ? "  gone:" : "  now:", &after);
}

static int unresolved(void* context, const struct mrib_unresolved* u) {
  (void)context;
  printf("  line %u: %s\n", (unsigned)u->mroute->origin, u->text);
  return 0;
}

static void link_set(uint32_t index, const char* name, const char* address, const char* subnet) {
  const struct mrib_link link = {MRIB_SIZE(mrib_link), .index = index, .name = name};
  const struct mrib_address a = {MRIB_SIZE(mrib_address), .link = index, .ip = ip(address)};
  const struct mrib_next_hop attached = {.link = index};
  const struct mrib_unicast route = {MRIB_SIZE(mrib_unicast), .type = MRIB_CONNECTED,
                                     .prefix = prefix(subnet), .next_hop_count = 1, .next_hops = &attached};
  mrib_link_set(agent, &link);
  mrib_address_set(agent, &a);
  mrib_route_set(agent, &route);
}

static void commit(const char* what) {
  struct mrib_update result = {MRIB_SIZE(mrib_update)};
  printf("%s\n", what);
  if (mrib_commit(agent, &result) != MRIB_OK)
    for (size_t i = 0; i < mrib_error_count(); ++i) printf("  %s\n", mrib_error_text(i));
  else if (result.flags & MRIB_UPDATE_MAY_DIFFER)
    mrib_settle(agent, NULL);
  mrib_visit_unresolved(agent, unresolved, NULL);
}

int main(void) {
  agent = mrib_create(NULL);
  mrib_subscribe(agent, changed, NULL);
  mrib_begin(agent);
  link_set(1, "eth0", "192.0.2.7", "192.0.2.0/24");
  link_set(2, "eth1", "198.51.100.7", "198.51.100.0/24");
  const struct mrib_mroute mroutes[] = {
      {MRIB_SIZE(mrib_mroute), 1, prefix("203.0.113.0/24"), .rpf_address = ip("192.0.2.1"), .origin = 1},
      {MRIB_SIZE(mrib_mroute), 250, prefix("203.0.113.0/24"), .rpf_interface = "eth1", .origin = 2},
      {MRIB_SIZE(mrib_mroute), 1, prefix("10.9.0.0/16"), .rpf_address = ip("203.0.113.7"), .origin = 3}};
  for (int i = 0; i < 3; ++i) mrib_mroute_set(agent, &mroutes[i]);
  commit("start");

  const struct mrib_prefix lost = prefix("192.0.2.0/24");
  mrib_begin(agent);
  mrib_route_del(agent, &lost);
  commit("eth0 fails");

  struct mrib_next_hop hops[4];
  struct mrib_route route = {MRIB_SIZE(mrib_route), .next_hops = hops, .next_hop_room = 4};
  const struct mrib_ip source = ip("10.9.1.2");
  if (mrib_rpf(agent, &source, &route) == MRIB_OK) print_route("RPF of 10.9.1.2:", &route);
  return mrib_free(agent);
}
