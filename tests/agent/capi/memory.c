/* Memory that runs out anywhere between a transaction and its settling: a code and a text come back, never an
 * exception, and look-ups go on. */
#include "check.h"

void memory_left(long allocations);

/* Whether an agent withstands `allocations`; with enough of them it gets to the end. */
static int reaches_end(long allocations) {
  const struct mrib_mroute m = {MRIB_SIZE(mrib_mroute), .preference = 1, .prefix = prefix("10.9.0.0/16"),
                                .rpf_address = ip("203.0.113.7")};
  const struct mrib_prefix lost = prefix("192.0.2.0/24");
  const struct mrib_ip source = ip("10.9.0.1");
  struct mrib_route route = {MRIB_SIZE(mrib_route)};
  struct mrib_agent* agent = router();
  memory_left(allocations);
  int code = mrib_begin(agent);
  if (code == MRIB_OK) code = mrib_mroute_set(agent, &m);
  if (code == MRIB_OK) code = mrib_route_del(agent, &lost);
  const int committed = mrib_commit(agent, NULL);
  const size_t texts = mrib_error_count();
  const int settled = mrib_settle(agent, NULL);
  memory_left(0);
  const int found = mrib_rpf(agent, &source, &route);
  memory_left(-1);
  CHECK(code == MRIB_OK || (code == MRIB_ERROR_MEMORY && committed == MRIB_ERROR_REFUSED));
  CHECK(committed == MRIB_OK || texts > 0);
  CHECK(committed == MRIB_OK || committed == MRIB_ERROR_REFUSED || committed == MRIB_ERROR_MEMORY);
  CHECK(settled == MRIB_OK || settled == MRIB_ERROR_MEMORY);
  CHECK(found == (committed == MRIB_OK ? MRIB_OK : MRIB_NOT_FOUND));
  CHECK_OK(mrib_settle(agent, NULL));
  CHECK_OK(mrib_free(agent));
  return committed == MRIB_OK && settled == MRIB_OK;
}

void test_memory(void) {
  long allocations = 0;
  while (!reaches_end(allocations) && allocations < 10000) ++allocations;
  CHECK(allocations > 20 && allocations < 10000);
  memory_left(0);
  CHECK(mrib_create(NULL) == NULL && strstr(mrib_error_text(0), "mrib_create: no memory is left"));
  memory_left(-1);
}
