#include "LinkSwitch.h"

#include <fstream>

namespace host::kernel {

bool isSwitchedOn(const std::string& name, const std::string& link) {
  for (const std::string& folder : {std::string("all"), link}) {
    std::ifstream file("/proc/sys/net/ipv4/conf/" + folder + '/' + name);
    int value = 0;
    if (file >> value && value != 0) return true;
  }
  return false;
}

}  // namespace host::kernel
