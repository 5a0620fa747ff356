/* Wrong arguments: each is refused with a text that names it, and changes nothing. */
#include <string.h>

#include "check.h"

#define WRONG(call, part) CHECK_FAILS(call, MRIB_ERROR_ARGUMENT, part)
/* A table of calls, in order. */
#define ALL(...) ((void)0, __VA_ARGS__)
#define NO_AGENT(call) WRONG(call, "the agent is NULL")
#define IS_NULL(call, what) WRONG(call, "the " what " is NULL")

static void test_no_agent(void) {
  CHECK_OK(mrib_free(NULL));
  ALL(NO_AGENT(mrib_status_get(NULL, NULL)), NO_AGENT(mrib_begin(NULL)), NO_AGENT(mrib_abort(NULL)),
      NO_AGENT(mrib_link_set(NULL, NULL)), NO_AGENT(mrib_link_del(NULL, 1)),
      NO_AGENT(mrib_address_set(NULL, NULL)), NO_AGENT(mrib_address_del(NULL, 1, NULL)),
      NO_AGENT(mrib_route_set(NULL, NULL)), NO_AGENT(mrib_route_del(NULL, NULL)),
      NO_AGENT(mrib_mroute_set(NULL, NULL)), NO_AGENT(mrib_mroute_del(NULL, NULL)),
      NO_AGENT(mrib_mroute_del_all(NULL)), NO_AGENT(mrib_commit(NULL, NULL)),
      NO_AGENT(mrib_settle(NULL, NULL)), NO_AGENT(mrib_unsubscribe(NULL, 1)),
      NO_AGENT(mrib_rpf(NULL, NULL, NULL)), NO_AGENT(mrib_route_get(NULL, NULL, NULL)),
      NO_AGENT(mrib_route_at(NULL, 0, NULL)), NO_AGENT(mrib_link_get(NULL, 1, NULL)),
      NO_AGENT(mrib_visit_mroutes(NULL, NULL, NULL)), NO_AGENT(mrib_visit_unresolved(NULL, NULL, NULL)));
  CHECK(mrib_note(NULL, 0) == NULL);
  CHECK(mrib_subscribe(NULL, NULL, NULL) == 0 && strstr(mrib_error_text(0), "the agent is NULL"));
}

static void test_null(struct mrib_agent* agent) {
  struct mrib_route route = {MRIB_SIZE(mrib_route)};
  struct mrib_update update = {MRIB_SIZE(mrib_update)};
  struct mrib_unicast unicast = {MRIB_SIZE(mrib_unicast), .type = MRIB_IGP, .prefix = prefix("10.0.0.0/8"),
                                 .next_hop_count = 1};
  const struct mrib_ip host = ip("192.0.2.1");
  CHECK_OK(mrib_begin(agent));
  ALL(IS_NULL(mrib_link_set(agent, NULL), "link"), IS_NULL(mrib_address_set(agent, NULL), "address"),
      IS_NULL(mrib_address_del(agent, 1, NULL), "address"), IS_NULL(mrib_route_set(agent, NULL), "route"),
      IS_NULL(mrib_route_set(agent, &unicast), "array of next hops"),
      IS_NULL(mrib_route_del(agent, NULL), "prefix"),
      IS_NULL(mrib_mroute_set(agent, NULL), "multicast route"),
      IS_NULL(mrib_mroute_del(agent, NULL), "multicast route"));
  CHECK_FAILS(mrib_commit(agent, NULL), MRIB_ERROR_REFUSED, "the link is NULL");
  CHECK(mrib_error_count() == 8);
  CHECK(strstr(mrib_error_text(7), "mrib_mroute_del") && mrib_error_text(8) == NULL);
  ALL(IS_NULL(mrib_status_get(agent, NULL), "status"), IS_NULL(mrib_rpf(agent, NULL, &route), "source"),
      IS_NULL(mrib_rpf(agent, &host, NULL), "route"), IS_NULL(mrib_route_get(agent, NULL, &route), "prefix"),
      IS_NULL(mrib_route_at(agent, 0, NULL), "route"), IS_NULL(mrib_link_get(agent, 1, NULL), "link"),
      IS_NULL(mrib_visit_mroutes(agent, NULL, NULL), "visitor"),
      IS_NULL(mrib_visit_unresolved(agent, NULL, NULL), "visitor"),
      IS_NULL(mrib_change_at(NULL, 0, NULL, NULL), "update"),
      IS_NULL(mrib_change_at(&update, 0, NULL, NULL), "list of changes"));
  CHECK(mrib_subscribe(agent, NULL, NULL) == 0 && strstr(mrib_error_text(0), "the listener is NULL"));
  CHECK_OK(mrib_unsubscribe(agent, 0));
  CHECK_OK(mrib_unsubscribe(agent, 4711));
}

static void test_values(struct mrib_agent* agent) {
  const struct mrib_next_hop hop = {.neighbour = ip("192.0.2.1")},
                             odd = {.neighbour = {.family = 2}, .link = 1};
  const struct mrib_link nameless = {MRIB_SIZE(mrib_link), .index = 1};
  const struct mrib_link flags = {MRIB_SIZE(mrib_link), .index = 1, .name = "eth1", .flags = 0x10};
  const struct mrib_link same = {MRIB_SIZE(mrib_link), .index = 3, .name = "eth1"};
  const struct mrib_address group = {MRIB_SIZE(mrib_address), .link = 1, .ip = ip("224.0.0.1")};
  const struct mrib_ip six = ip("2001:db8::1");
  struct mrib_unicast route = {MRIB_SIZE(mrib_unicast), .type = 9, .prefix = prefix("10.0.0.0/8")};
  struct mrib_mroute m = {MRIB_SIZE(mrib_mroute), .preference = 1, .prefix = prefix("10.0.0.0/8"),
                          .origin = 5};
  CHECK_OK(mrib_begin(agent));
  ALL(WRONG(mrib_link_set(agent, &nameless), "link 1 has no name"),
      WRONG(mrib_link_set(agent, &flags), "unknown flags: 0x10"),
      WRONG(mrib_link_del(agent, 0), "0 is no interface index"),
      WRONG(mrib_address_set(agent, &group), "\"224.0.0.1\" is a group address"),
      WRONG(mrib_address_del(agent, 1, &six), "\"2001:db8::1\" is not an IPv4 address"),
      WRONG(mrib_route_set(agent, &route), "route 10.0.0.0/8 has the type 9"));
  route.type = MRIB_IGP;
  route.next_hop_count = 1;
  route.next_hops = &hop;
  WRONG(mrib_route_set(agent, &route), "next hop: 0 is no interface index");
  route.next_hops = &odd;
  WRONG(mrib_route_set(agent, &route), "the family of the neighbour of a next hop is 2");
  route.reserved = 1;
  WRONG(mrib_route_set(agent, &route), "a reserved field of the route is 1");
  route.prefix.bytes[3] = 1;
  WRONG(mrib_route_del(agent, &route.prefix), "10.0.0.1/8 has host bits set");
  m.rpf_interface = "eth1";
  m.preference = 256;
  WRONG(mrib_mroute_set(agent, &m), "line 5: multicast route 10.0.0.0/8: the preference 256");
  m.rpf_address = ip("192.0.2.1");
  WRONG(mrib_mroute_del(agent, &m), "both an RPF address and an RPF interface");
  CHECK_OK(mrib_link_set(agent, &same));
  CHECK_FAILS(mrib_commit(agent, NULL), MRIB_ERROR_REFUSED, "link 1 has no name");
  CHECK(mrib_error_count() == 12);
  uint64_t origin = 0;
  CHECK(mrib_error_origins(10, &origin, 1) == 1 && origin == 5);
  CHECK_OK(mrib_begin(agent));
  CHECK_OK(mrib_link_set(agent, &same));
  CHECK_FAILS(mrib_commit(agent, NULL), MRIB_ERROR_REFUSED, "have the same name");
  struct mrib_route out = {MRIB_SIZE(mrib_route)};
  ALL(WRONG(mrib_rpf(agent, &six, &out), "the family of the source is 6"),
      WRONG(mrib_route_get(agent, &route.prefix, &out), "host bits set"));
  route.prefix.family = 10;
  WRONG(mrib_route_get(agent, &route.prefix, &out), "the family of the prefix is 10");
}

static void test_texts(void) {
  static const char* const texts[][2] = {
      {"192.0.2.1", "192.0.2.0/24"}, {"0.0.0.0", "0.0.0.0/0"}, {"2001:db8::7", "2001:db8::/32"}};
  char text[MRIB_PREFIX_TEXT];
  struct mrib_ip address;
  struct mrib_prefix net;
  for (size_t i = 0; i < sizeof texts / sizeof *texts; ++i) {
    const char *ip_text = texts[i][0], *net_text = texts[i][1];
    address = ip(ip_text);
    net = prefix(net_text);
    CHECK(strcmp(mrib_ip_text(&address, text, strlen(ip_text) + 1), ip_text) == 0);
    CHECK(strcmp(mrib_prefix_text(&net, text, strlen(net_text) + 1), net_text) == 0);
    CHECK(!mrib_ip_text(&address, text, strlen(ip_text)) && strstr(mrib_error_text(0), "the buffer has"));
    CHECK(!mrib_prefix_text(&net, text, 0) && strstr(mrib_error_text(0), net_text));
  }
  ALL(WRONG(mrib_ip_parse("192.0.2", &address), "\"192.0.2\""),
      WRONG(mrib_ip_parse("", &address), "\"\" is not an address"),
      WRONG(mrib_prefix_parse("192.0.2.1/24", &net), "192.0.2.1/24"),
      WRONG(mrib_prefix_parse("", &net), "\"\" is not a prefix"),
      IS_NULL(mrib_ip_parse(NULL, &address), "text"), IS_NULL(mrib_ip_parse("192.0.2.1", NULL), "address"),
      IS_NULL(mrib_prefix_parse(NULL, &net), "text"),
      IS_NULL(mrib_prefix_parse("10.0.0.0/8", NULL), "prefix"));
  CHECK(!mrib_ip_text(NULL, text, sizeof text) && !mrib_ip_text(&address, NULL, 0));
  CHECK(!mrib_prefix_text(NULL, text, sizeof text) && !mrib_prefix_text(&net, NULL, 0));
  address.family = 2;
  CHECK(!mrib_ip_text(&address, text, sizeof text) &&
        strstr(mrib_error_text(0), "family of the address is 2"));
  address.family = net.family = MRIB_NONE;
  CHECK(strcmp(mrib_ip_text(&address, text, sizeof text), "") == 0);
  CHECK(strcmp(mrib_prefix_text(&net, text, sizeof text), "") == 0);
}

void test_arguments(void) {
  struct mrib_agent* agent = router();
  struct mrib_status before = {MRIB_SIZE(mrib_status)}, after = {MRIB_SIZE(mrib_status)};
  CHECK_OK(mrib_status_get(agent, &before));
  test_no_agent();
  test_null(agent);
  test_values(agent);
  test_texts();
  CHECK_OK(mrib_status_get(agent, &after));
  CHECK(memcmp(&before, &after, sizeof before) == 0);
  CHECK_OK(mrib_free(agent));
}
