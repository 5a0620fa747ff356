// traffic send GROUP FROM RATE: numbered packets to a group, RATE a second, until its input ends.
// traffic receive GROUP TO [SOURCE]: joins, of a source if there is one. For each line of input a line:
// packets received and lost since the one before, and the milliseconds since the last packet. FROM and TO are
// the addresses of the interface.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum { port = 5000, room = 1 << 22 };

static int64_t now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return t.tv_sec * INT64_C(1000000000) + t.tv_nsec;
}

static in_addr_t address(const char* text) {
  struct in_addr a;
  if (inet_pton(AF_INET, text, &a) != 1) exit(2);
  return a.s_addr;
}

static void need(int result, const char* what) {
  if (result >= 0) return;
  perror(what);
  exit(1);
}

static int inputEnded(void) {
  char byte;
  struct pollfd input = {.fd = 0, .events = POLLIN};
  return poll(&input, 1, 0) > 0 && read(0, &byte, 1) == 0;
}

static void sendPackets(int fd, const char* group, const char* from, int64_t rate) {
  const struct in_addr link = {address(from)};
  const struct sockaddr_in to = {
      .sin_family = AF_INET, .sin_port = htons(port), .sin_addr = {address(group)}};
  const unsigned char ttl = 16;
  need(setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &link, sizeof link), "IP_MULTICAST_IF");
  need(setsockopt(fd, IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl), "IP_MULTICAST_TTL");
  const int64_t start = now();
  for (uint32_t number = 1; !inputEnded(); ++number) {
    const int64_t at = start + number * (INT64_C(1000000000) / rate);
    const struct timespec until = {at / 1000000000, at % 1000000000};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, NULL);
    sendto(fd, &number, sizeof number, 0, (const struct sockaddr*)&to, sizeof to);
  }
}

static void join(int fd, const char* group, const char* to, const char* source) {
  const struct ip_mreq any = {{address(group)}, {address(to)}};
  if (!source) return need(setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &any, sizeof any), "join");
  const struct ip_mreq_source of = {.imr_multiaddr = any.imr_multiaddr,
                                    .imr_interface = any.imr_interface,
                                    .imr_sourceaddr = {address(source)}};
  need(setsockopt(fd, IPPROTO_IP, IP_ADD_SOURCE_MEMBERSHIP, &of, sizeof of), "join");
}

// Packets that come twice, or late, are seen by their numbers.
static void receivePackets(int fd, const char* group) {
  static unsigned char seen[room];
  const struct sockaddr_in here = {
      .sin_family = AF_INET, .sin_port = htons(port), .sin_addr = {address(group)}};
  need(bind(fd, (const struct sockaddr*)&here, sizeof here), "bind");
  struct pollfd both[] = {{.fd = 0, .events = POLLIN}, {.fd = fd, .events = POLLIN}};
  uint32_t first = 0, last = 0;
  int64_t heard = now();
  while (poll(both, 2, -1) >= 0) {
    uint32_t number;
    if (both[1].revents && recv(fd, &number, sizeof number, 0) == sizeof number && number < room) {
      heard = now();
      seen[number] = 1;
      if (first == 0) first = number;
      if (number > last) last = number;
    }
    char line[64];
    if (!both[0].revents) continue;
    if (read(0, line, sizeof line) <= 0) return;
    uint32_t received = 0;
    for (uint32_t n = first; n <= last; ++n) received += seen[n];
    const uint32_t all = first ? last - first + 1 : 0;
    printf("%u %u %lld\n", received, all - received, (long long)(now() - heard) / 1000000);
    fflush(stdout);
    if (first) first = last + 1;
  }
}

int main(int count, char** words) {
  if (count < 4) return 2;
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  const int size = 4 << 20;
  need(fd, "socket");
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  if (strcmp(words[1], "send") == 0 && count == 5) {
    sendPackets(fd, words[2], words[3], atoi(words[4]));
  } else {
    join(fd, words[2], words[3], words[4]);
    receivePackets(fd, words[2]);
  }
  return 0;
}
