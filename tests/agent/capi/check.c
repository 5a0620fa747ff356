#include "check.h"

#include <stdio.h>
#include <stdlib.h>

int faults = 0;

void check_at(const char* file, int line, const char* what, int holds) {
  if (holds) return;
  ++faults;
  fprintf(stderr, "%s:%d: %s\n", file, line, what);
}

void check_failed_at(const char* file, int line, const char* what, int code, int expected, const char* part) {
  const char* text = code < 0 ? mrib_error_text(0) : "";
  if (code == expected && (part == NULL || (text && strstr(text, part)))) return;
  ++faults;
  fprintf(stderr, "%s:%d: %s: %d, \"%s\"; not %d, \"%s\"\n", file, line, what, code, text ? text : "",
          expected, part ? part : "");
}

struct mrib_ip ip(const char* text) {
  struct mrib_ip value;
  if (mrib_ip_parse(text, &value) != MRIB_OK) abort();
  return value;
}

struct mrib_prefix prefix(const char* text) {
  struct mrib_prefix value;
  if (mrib_prefix_parse(text, &value) != MRIB_OK) abort();
  return value;
}

static void add_link(struct mrib_agent* agent, uint32_t index, const char* name, const char* address,
                     const char* subnet) {
  const struct mrib_link link = {MRIB_SIZE(mrib_link), .index = index, .name = name};
  const struct mrib_address a = {MRIB_SIZE(mrib_address), .link = index, .ip = ip(address)};
  const struct mrib_next_hop attached = {.link = index};
  const struct mrib_unicast route = {MRIB_SIZE(mrib_unicast), .type = MRIB_CONNECTED,
                                     .prefix = prefix(subnet), .next_hop_count = 1, .next_hops = &attached};
  CHECK_OK(mrib_link_set(agent, &link));
  CHECK_OK(mrib_address_set(agent, &a));
  CHECK_OK(mrib_route_set(agent, &route));
}

struct mrib_agent* router(void) {
  const struct mrib_mroute first = {MRIB_SIZE(mrib_mroute), .preference = 1,
                                    .prefix = prefix("203.0.113.0/24"), .rpf_address = ip("192.0.2.1"),
                                    .origin = 1};
  const struct mrib_mroute second = {MRIB_SIZE(mrib_mroute), .preference = 250,
                                     .prefix = prefix("203.0.113.0/24"), .rpf_interface = "eth2",
                                     .origin = 2};
  struct mrib_agent* agent = mrib_create(NULL);
  CHECK_OK(mrib_begin(agent));
  add_link(agent, 1, "eth1", "192.0.2.7", "192.0.2.0/24");
  add_link(agent, 2, "eth2", "198.51.100.7", "198.51.100.0/24");
  CHECK_OK(mrib_mroute_set(agent, &first));
  CHECK_OK(mrib_mroute_set(agent, &second));
  CHECK_OK(mrib_commit(agent, NULL));
  return agent;
}

int main(void) {
  test_arguments();
  test_sizes();
  test_use();
  test_callbacks();
  return faults > 0;
}
