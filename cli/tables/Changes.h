// What has changed since the last look at a unit that enters or leaves, a line each: for whoever waits and watches.
//
// The first look tells where everything stands. Numbers that move are no change; a verdict, what is settled and whether
// traffic falls or is stuck are. Many interfaces that change alike at once share a line.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tables/Members.h"

namespace Cli {

class Changes {
 public:
   // Of the same unit each time.
   [[nodiscard]] std::vector<std::string> next( Object const & unit );

 private:
   [[nodiscard]] std::vector<std::string> interfaceLines( Object const & unit );
   [[nodiscard]] std::vector<Object const *> changed( Object const & unit );

   std::string stands_;                       // state and stage; empty before the first look
   std::map<std::string, std::string> told_;  // by interface: its verdict and what else is no mere number
};

}  // namespace Cli
