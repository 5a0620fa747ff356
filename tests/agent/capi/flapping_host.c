/* A router whose links, addresses, routes and configuration flap at random. After each settling its MRIB must
 * be the right answer to all that it was told, and so must be what its listener has heard. */
#include <mrib.h>
#include <stdio.h>

#include "judge.h"

#define PICK(pool) pool[dice(sizeof(pool) / sizeof *(pool))]
#define BOTH(change, ...) (mrib_##change(agent, __VA_ARGS__), judge_##change(__VA_ARGS__))

static const char* const prefixes[] = {"20.0.0.0/24", "20.0.0.128/25", "10.0.0.0/8", "10.1.0.0/16",
                                       "60.0.0.0/8",  "60.1.0.0/16",   "0.0.0.0/0",  "10.1.1.0/24"};
static const char* const addresses[] = {"20.0.0.5", "20.0.0.200", "10.1.1.1",
                                        "10.9.9.9", "60.1.1.1",   "60.9.9.9"};
static const char* const names[] = {"eth1", "eth2", "eth3"};
static struct mrib_agent* agent;
static uint64_t random_state = 1;

static uint32_t dice(size_t sides) {
  random_state = random_state * 6364136223846793005u + 1442695040888963407u;
  return (uint32_t)((random_state >> 33) % sides);
}

static void change(void) {
  const uint32_t i = dice(3), kind = dice(10), is_del = dice(2);
  struct mrib_link link = {MRIB_SIZE(mrib_link), .index = i + 1, .name = names[i], .flags = dice(4)};
  struct mrib_address address = {MRIB_SIZE(mrib_address), .link = i + 1, .flags = dice(2)};
  struct mrib_next_hop hops[] = {{.link = 1 + dice(3)}, {.link = 1 + dice(3)}};
  struct mrib_unicast route = {MRIB_SIZE(mrib_unicast), .type = dice(4) ? MRIB_CONNECTED : MRIB_IGP};
  struct mrib_mroute mroute = {MRIB_SIZE(mrib_mroute), .preference = 1 + dice(2), .origin = dice(9)};
  mrib_ip_parse(PICK(addresses), &address.ip);
  mrib_ip_parse(PICK(addresses), &hops[1].neighbour);
  mrib_prefix_parse(PICK(prefixes), &route.prefix);
  mrib_prefix_parse(PICK(prefixes), &mroute.prefix);
  route.next_hops = hops;
  route.next_hop_count = dice(3);
  if (dice(4) == 0) mroute.rpf_interface = names[i];
  if (!mroute.rpf_interface) mrib_ip_parse(PICK(addresses), &mroute.rpf_address);
  if (kind == 0) is_del ? BOTH(link_del, i + 1) : BOTH(link_set, &link);
  if (kind == 1) is_del ? BOTH(address_del, i + 1, &address.ip) : BOTH(address_set, &address);
  if (kind >= 2 && kind < 5) is_del ? BOTH(route_del, &route.prefix) : BOTH(route_set, &route);
  if (kind >= 5) is_del ? BOTH(mroute_del, &mroute) : BOTH(mroute_set, &mroute);
}

int main(void) {
  uint32_t wrong = 0, refused = 0;
  for (uint32_t round = 0; round < 300 && wrong == 0; ++round) {
    const struct mrib_options options = {MRIB_SIZE(mrib_options), .rebuild_from = round % 2 ? 0 : 4};
    agent = mrib_create(&options);
    judge_agent(agent);
    for (int step = 0; step < 30; ++step) {
      mrib_begin(agent);
      judge_begin();
      for (uint32_t n = 1 + dice(4); n > 0; --n) change();
      const int accepted = mrib_commit(agent, NULL) == MRIB_OK;
      mrib_settle(agent, NULL);
      refused += !accepted;
      wrong += !judge_commit(accepted) + judge_faults(agent);
    }
    mrib_free(agent);
  }
  printf("%u wrong, %u refused, %u healed\n", wrong, refused, judge_healed());
  return wrong > 0 || refused == 0 || judge_healed() == 0;
}
