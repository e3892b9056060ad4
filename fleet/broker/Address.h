// Where the broker is, and how it is reached: in the clear only on this machine.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Fleet {

// The broker cannot be used as it was asked for. The text says why.
class BrokerFault : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct Address {
   std::string host;
   uint16_t port = 4222;
   bool tls = false;

   // Of "nats://HOST[:PORT]" or "tls://HOST[:PORT]". `caFile`, empty where there is none, is what the broker's
   // certificate must descend from; with it there is always TLS. Throws BrokerFault, also where a key would be shown to
   // a network.
   [[nodiscard]] static Address of( std::string const & url, std::string const & caFile );
   // As libnats takes it.
   [[nodiscard]] std::string url() const;
};

}  // namespace Fleet
