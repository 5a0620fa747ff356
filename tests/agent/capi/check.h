/* Checks that go on after a fault; the program fails at the end. */
#ifndef CHECK_H
#define CHECK_H

#include <mrib.h>

extern int faults;
void check_at(const char* file, int line, const char* what, int holds);
/* Whether the last failure has a text, its first, that contains `part`. */
void check_failed_at(const char* file, int line, const char* what, int code, int expected, const char* part);

#define CHECK(condition) check_at(__FILE__, __LINE__, #condition, (condition) ? 1 : 0)
#define CHECK_OK(call) check_failed_at(__FILE__, __LINE__, #call, call, MRIB_OK, NULL)
#define CHECK_FAILS(call, code, part) check_failed_at(__FILE__, __LINE__, #call, call, code, part)

struct mrib_ip ip(const char* text);
struct mrib_prefix prefix(const char* text);
/* A router: eth1 with 192.0.2.7/24 and eth2 with 198.51.100.7/24, and 203.0.113.0/24 configured by 192.0.2.1
 * (line 1) and by eth2 with preference 250 (line 2). */
struct mrib_agent* router(void);

void test_arguments(void);
void test_sizes(void);
void test_use(void);
void test_callbacks(void);

#endif
