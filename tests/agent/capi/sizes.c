/* The layout of structs, and what becomes of callers that are older or newer than the library. */
#include <stdlib.h>

#include "check.h"

#if defined(__x86_64__) && !defined(__ILP32__)
#define LAYOUT(type, bytes, field, offset) \
  typedef char layout_##type               \
      [sizeof(struct mrib_##type) == (bytes) && offsetof(struct mrib_##type, field) == (offset) ? 1 : -1]
LAYOUT(ip, 20, bytes, 4);
LAYOUT(prefix, 20, bytes, 4);
LAYOUT(next_hop, 24, link, 20);
LAYOUT(options, 8, rebuild_from, 4);
LAYOUT(status, 32, reserved, 28);
LAYOUT(link, 24, reserved, 20);
LAYOUT(address, 32, flags, 28);
LAYOUT(unicast, 40, next_hops, 32);
LAYOUT(mroute, 64, origin, 56);
LAYOUT(update, 32, changes, 24);
LAYOUT(route, 48, reserved2, 44);
LAYOUT(unresolved, 72, flags, 68);
#endif

/* Memory of so many bytes and no more, that begins like a struct, with its size. */
static void* cut(const void* value, size_t known, uint32_t size) {
  unsigned char* copy = malloc(size);
  if (!copy) abort();
  memset(copy, 0, size);
  memcpy(copy, value, known < size ? known : size);
  memcpy(copy, &size, sizeof size);
  return copy;
}

/* Calls with a struct of another size; for a field behind what the library knows that is not 0, too. */
#define WITH_SIZE(type, value, bytes, tail, call, expected)                      \
  do {                                                                           \
    struct type* sized = cut(&(value), sizeof(value), (uint32_t)(bytes));        \
    if ((bytes) > sizeof(value)) ((unsigned char*)sized)[(bytes)-1] = (tail);    \
    CHECK_FAILS(call, expected, (expected) == MRIB_ERROR_SIZE ? "mrib_" : NULL); \
    free(sized);                                                                 \
  } while (0)
/* An older caller, whose struct ends behind `least`, a newer one, and garbage. */
#define IN_SIZES(type, value, least, call)                                          \
  do {                                                                              \
    WITH_SIZE(type, value, least, 0, call, MRIB_OK);                                \
    WITH_SIZE(type, value, sizeof(value) + 24, 0, call, MRIB_OK);                   \
    WITH_SIZE(type, value, sizeof(value) + 24, 1, call, MRIB_ERROR_SIZE);           \
    WITH_SIZE(type, value, (least)-1, 0, call, MRIB_ERROR_SIZE);                    \
    WITH_SIZE(type, value, 5000, 0, call, MRIB_ERROR_SIZE);                         \
    struct type *zero = cut(&(value), sizeof(value), sizeof(value)), *sized = zero; \
    zero->size = 0;                                                                 \
    CHECK_FAILS(call, MRIB_ERROR_SIZE, "0, which is none");                         \
    free(sized);                                                                    \
  } while (0)

static void test_in(struct mrib_agent* agent) {
  const struct mrib_link link = {MRIB_SIZE(mrib_link), .index = 7, .name = "eth7"};
  const struct mrib_address address = {MRIB_SIZE(mrib_address), .link = 7, .ip = ip("10.7.0.1")};
  const struct mrib_unicast route = {MRIB_SIZE(mrib_unicast), .type = MRIB_IGP,
                                     .prefix = prefix("10.7.0.0/16")};
  const struct mrib_mroute mroute = {MRIB_SIZE(mrib_mroute), .preference = 1, .prefix = prefix("10.8.0.0/16"),
                                     .rpf_address = ip("192.0.2.1"), .origin = 8};
  CHECK_OK(mrib_begin(agent));
  IN_SIZES(mrib_link, link, offsetof(struct mrib_link, flags), mrib_link_set(agent, sized));
  IN_SIZES(mrib_address, address, offsetof(struct mrib_address, flags), mrib_address_set(agent, sized));
  IN_SIZES(mrib_unicast, route, sizeof route, mrib_route_set(agent, sized));
  IN_SIZES(mrib_mroute, mroute, offsetof(struct mrib_mroute, origin), mrib_mroute_set(agent, sized));
  CHECK_FAILS(mrib_commit(agent, NULL), MRIB_ERROR_REFUSED,
              "sets a field at byte 47 that this library does not know");
}

static void test_options(void) {
  const struct mrib_options options = {MRIB_SIZE(mrib_options), .rebuild_from = 10};
  struct mrib_options *larger = cut(&options, sizeof options, 64),
                      *smaller = cut(&options, sizeof options, 4);
  struct mrib_agent* agent = mrib_create(larger);
  CHECK(agent != NULL);
  CHECK_OK(mrib_free(agent));
  CHECK(mrib_create(smaller) == NULL && strstr(mrib_error_text(0), "the size of the options is 4"));
  free(larger);
  free(smaller);
}

/* What is filled in ends where the caller's struct does, and is 0 behind the library's. */
#define OUT_SIZES(type, value, least, call)                                             \
  do {                                                                                  \
    WITH_SIZE(type, value, least, 0, call, MRIB_OK);                                    \
    WITH_SIZE(type, value, (least)-1, 0, call, MRIB_ERROR_SIZE);                        \
    WITH_SIZE(type, value, 5000, 0, call, MRIB_ERROR_SIZE);                             \
    struct type* sized = cut(&(value), sizeof(value), sizeof(value) + 24);              \
    memset(sized + 1, 0xFF, 24);                                                        \
    CHECK_OK(call);                                                                     \
    CHECK(sized->size == sizeof(value) + 24 && ((unsigned char*)(sized + 1))[23] == 0); \
    free(sized);                                                                        \
  } while (0)

static void test_out(struct mrib_agent* agent) {
  const struct mrib_ip source = ip("203.0.113.9");
  const struct mrib_prefix net = prefix("203.0.113.0/24");
  struct mrib_status status = {MRIB_SIZE(mrib_status)};
  struct mrib_route route = {MRIB_SIZE(mrib_route)};
  struct mrib_link link = {MRIB_SIZE(mrib_link)};
  struct mrib_update update = {MRIB_SIZE(mrib_update)};
  const size_t least = offsetof(struct mrib_route, next_hops);
  OUT_SIZES(mrib_status, status, offsetof(struct mrib_status, healed), mrib_status_get(agent, sized));
  OUT_SIZES(mrib_route, route, least, mrib_rpf(agent, &source, sized));
  OUT_SIZES(mrib_route, route, least, mrib_route_get(agent, &net, sized));
  OUT_SIZES(mrib_route, route, least, mrib_route_at(agent, 0, sized));
  OUT_SIZES(mrib_link, link, offsetof(struct mrib_link, flags), mrib_link_get(agent, 1, sized));
  OUT_SIZES(mrib_update, update, sizeof update, mrib_settle(agent, sized));
  CHECK_OK(mrib_begin(agent));
  CHECK_OK(mrib_route_del(agent, &net));
  WITH_SIZE(mrib_update, update, 8, 0, mrib_commit(agent, sized), MRIB_ERROR_SIZE);
  const struct mrib_prefix lost = prefix("192.0.2.0/24");
  CHECK_OK(mrib_route_del(agent, &lost)); /* it is still open */
  CHECK_OK(mrib_commit(agent, &update));
  CHECK(update.change_count == 2);
  OUT_SIZES(mrib_route, route, least, mrib_change_at(&update, 0, sized, NULL));
  OUT_SIZES(mrib_route, route, least, mrib_change_at(&update, 0, NULL, sized));
}

void test_sizes(void) {
  struct mrib_agent* agent = router();
  test_in(agent);
  test_options();
  test_out(agent);
  CHECK_OK(mrib_free(agent));
}
