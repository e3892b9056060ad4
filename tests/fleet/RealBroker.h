// A broker for tests: nats-server on a free port of this machine, with TLS, JetStream and the keys of a KeyStore, all
// in a directory that goes with it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FreePort.h"
#include "broker/NatsBroker.h"
#include "keys/KeyStore.h"

namespace Fleet {

class RealBroker {
 public:
   // With keys for the owner and these boxes; it runs.
   explicit RealBroker( std::vector<std::string> const & boxes );
   RealBroker( RealBroker const & ) = delete;
   RealBroker & operator=( RealBroker const & ) = delete;
   ~RealBroker();

   void start();
   void kill();
   // Where not, it is gone, and at its port connections are taken, and nothing is said.
   void answers( bool does );
   // Has it read its configuration again.
   void reload() const;

   [[nodiscard]] KeyStore & keys() { return keys_; }
   [[nodiscard]] std::string log() const;
   // A connection of a box, or of the owner where it is "", with the key of the one named.
   [[nodiscard]] NatsOptions optionsOf( std::string const & box, std::string const & keyOf ) const;

 private:
   [[nodiscard]] std::string path( std::string const & file ) const { return directory_ + "/" + file; }
   void writeConfiguration() const;

   std::string const directory_;
   KeyStore keys_;
   FreePort const port_;
   pid_t process_ = 0;  // 0: none runs
   int silent_ = -1;    // the socket that takes connections in its place; -1: none
};

// Whether it holds within half a minute; asked for again and again.
[[nodiscard]] bool soon( std::function<bool()> const & holds );

}  // namespace Fleet
