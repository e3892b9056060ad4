// The box's maintd as its agent sees it: asked about its units, and asked to take one out or back.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "orders/Orders.h"

namespace Fleet {

class Maintd {
 public:
   struct Unit {
      UnitStatus status;        // but for what is said of orders
      uint64_t generation = 0;  // number of the request that was carried out last
   };
   struct Units {
      std::string trouble;  // why it could not be asked; empty when it could
      std::map<std::string, Unit> units;
   };
   struct Reply {
      enum class Kind : uint8_t {
         agreed,
         refused,
         unknown,  // no answer came: it may have been carried out, or may still be
      };
      Kind kind = Kind::unknown;
      std::string why;  // of a refusal, or why there is no answer
   };

   virtual ~Maintd() = default;

   [[nodiscard]] virtual Units units( double now ) = 0;
   [[nodiscard]] virtual Reply enter( std::string const & unit ) = 0;
   [[nodiscard]] virtual Reply exit( std::string const & unit ) = 0;
};

}  // namespace Fleet
