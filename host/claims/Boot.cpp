#include "claims/Boot.h"

#include <fstream>

namespace Host {

std::string bootId() {
   std::string id;
   std::ifstream( "/proc/sys/kernel/random/boot_id" ) >> id;
   return id;
}

}  // namespace Host
