// The broker between the owner of the fleet and its boxes: keys with a newest value each, kept by NATS JetStream
// (key-value layout: https://github.com/nats-io/nats-architecture-and-design, ADR-8).
//
//    desired.<box>    what the owner wants of a box; the owner writes, the box reads
//    status.<box>     what the box says of itself; the box writes, the owner reads
//    owner            who owns the fleet; the owner writes, and hears whether another does
//
// Asked for news and never calling back, so whoever drives it does so from his own loop. Nothing is queued while there
// is no connection: what matters is the newest value, and whoever has it sends it again. It connects by itself, for
// ever, after a random part of thirty seconds each time, so that ten thousand boxes do not come back in one moment.
#pragma once

#include <string>
#include <vector>

namespace Fleet {

class Broker {
 public:
   struct Letter {
      std::string key;  // "status.spine-3a"
      std::string text;

      bool operator==( Letter const & ) const = default;
   };

   virtual ~Broker() = default;

   [[nodiscard]] virtual bool connected() const = 0;
   // Why not, a sentence; while it is, what the broker last refused of it, or empty.
   [[nodiscard]] virtual std::string trouble() const = 0;
   // False when it was not sent. That it was does not mean that it has arrived.
   virtual bool put( std::string const & key, std::string const & text ) = 0;
   // Asks for the newest value of a key, which arrives as a letter, if there is one.
   virtual void read( std::string const & key ) = 0;
   // What has arrived since the last call, in that order.
   [[nodiscard]] virtual std::vector<Letter> arrived() = 0;
};

}  // namespace Fleet
