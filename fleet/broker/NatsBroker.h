// The broker as a real one: a connection of libnats, for the owner of the fleet or for one box.
//
//    away --connection stands--> joined --bucket stands (owner); next look (box)--> up
//      ^                           |                                                |
//      +---------------------- connection lost -------------------------------------+
//
// Looks at the connection, and takes what has come, only when arrived() is called: that is to be about twice a second,
// and everything that is told of the connection is as of then. libnats has threads of its own, which call nobody here.
//
// A box listens to its own desired key, the owner to the statuses of all; the owner also makes the bucket, each time
// that it has connected, because the broker keeps it in memory alone. A connection that was lost is seen as lost in one
// look at least, so that whoever drives it says again what may have been lost with it.
//
// libnats makes no connection anew by itself: it holds its lock while it does, and whoever asks how the connection
// stands would wait for as long as the broker's machine does not answer.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "broker/Address.h"
#include "broker/Broker.h"
#include "broker/Reach.h"

struct __natsConnection;
struct __natsMsg;
struct __natsOptions;
struct __natsSubscription;

namespace Fleet {

struct NatsOptions {
   std::string url = "nats://127.0.0.1:4222";  // broker/Address.h
   std::string box;                            // empty: the owner
   std::string keyFile;                        // seed of its key, readable for its owner only; empty: it has none
   std::string caFile;                         // empty: no TLS, to this machine only
   std::string serverName;                     // that the broker's certificate must have; empty: the host of the URL
   double reconnectSeconds = 30;               // it waits a random part of them before each attempt; the owner of less
   std::function<void( std::string const & )> told = []( std::string const & ) {};  // for a log; called in arrived()
};

class NatsBroker final : public Broker {
 public:
   // Throws BrokerFault or KeyFault where it can never connect like this. That the broker is not there is none.
   explicit NatsBroker( NatsOptions options );
   ~NatsBroker() override;

   [[nodiscard]] bool connected() const override { return state_ == State::up; }
   [[nodiscard]] std::string trouble() const override { return trouble_; }
   bool put( std::string const & key, std::string const & text ) override;
   void read( std::string const & key ) override;
   // Connects in here where it is due. That takes `firstMilliseconds` at most where the broker does not answer: from
   // then on it is tried only when somebody has answered there.
   [[nodiscard]] std::vector<Letter> arrived() override;

   static constexpr int firstMilliseconds = 2000;
   // TLS with a broker that thousands want at once takes its time.
   static constexpr int attemptMilliseconds = 5000;
   // There is only one, and it is to be there, with the bucket, when the boxes are.
   static constexpr double ownerReconnectSeconds = 3;

 private:
   enum class State : uint8_t { away, joined, up };
   using Clock = std::chrono::steady_clock;
   template<typename T>
   using Held = std::unique_ptr<T, void ( * )( T * )>;

   [[nodiscard]] bool isOwner() const { return options_.box.empty(); }
   void setUpOptions();
   void setUpKey();
   void setUpTls();
   void look();
   void open();
   // There is a connection_ then, or a sentence that says why not.
   [[nodiscard]] std::string attempt( int milliseconds );
   void close( std::string const & why );
   void stateIs( State state, std::string const & trouble );
   void handleConnected();
   void askForBucket();
   void handleBucket( std::string const & answer );
   void lookForRefusal();
   [[nodiscard]] std::string lastErrorHere() const;  // of a call of this thread
   [[nodiscard]] std::string lastError() const;      // of the connection
   [[nodiscard]] Held<__natsSubscription> subscribed( std::string const & subject );
   [[nodiscard]] Held<__natsMsg> nextOf( __natsSubscription * from );
   void takeFrom( __natsSubscription * from, std::vector<Letter> & into );
   void tellDropped();
   [[nodiscard]] double reconnectSeconds() const;
   [[nodiscard]] Clock::time_point randomlyLater();

   NatsOptions const options_;
   Address const address_;
   Held<__natsOptions> natsOptions_;
   std::mt19937_64 random_{ std::random_device{}() };
   State state_ = State::away;
   std::string trouble_;
   Clock::time_point due_;          // of the next attempt, while there is no connection_
   std::optional<Reach> reach_;     // nobody has answered: when somebody does, it is tried
   Clock::time_point bucketAsked_;  // while joined
   int64_t dropped_ = 0;            // letters, as of the last look
   Held<__natsConnection> connection_;
   // Of the connection, so gone before it.
   Held<__natsSubscription> news_;
   Held<__natsSubscription> answers_;  // to reads
   Held<__natsSubscription> bucket_;   // the owner's
   Held<__natsSubscription> owners_;   // likewise: what owners say of themselves
};

}  // namespace Fleet
