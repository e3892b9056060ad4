// A box's connection to the broker that takes no thread: some kilobytes and a socket, all of them on one loop.
//
//    away --random part of the reconnect time--> dialing --greeting, TLS, name and key taken--> up
//      ^                                            |                                            |
//      +------------- lost, refused, too long ------+--------------------------------------------+
//
// Does what NatsBroker does for a box (broker/NatsBroker.h), and waits as it does before each attempt.
#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "broker/Broker.h"
#include "keys/NKey.h"
#include "simulate/Protocol.h"

namespace Fleet {

// What all connections of a simulation have in common. Outlives them.
struct LightNetwork {
   boost::asio::io_context & io;
   boost::asio::ip::tcp::endpoint broker;
   boost::asio::ssl::context * tls = nullptr;  // null: in the clear
   std::string serverName;                     // that the broker's certificate must have
   double reconnectSeconds = 30;
   std::mt19937_64 & random;
};

class LightConnection final : public Broker {
 public:
   // `key` null: it has none.
   LightConnection( LightNetwork const & network, std::string box, NKey const * key );
   LightConnection( LightConnection const & ) = delete;
   LightConnection & operator=( LightConnection const & ) = delete;
   ~LightConnection() override;

   [[nodiscard]] bool connected() const override { return state_ == State::up; }
   [[nodiscard]] std::string trouble() const override { return trouble_; }
   bool put( std::string const & key, std::string const & text ) override;
   void read( std::string const & key ) override;
   [[nodiscard]] std::vector<Letter> arrived() override { return std::exchange( letters_, {} ); }

   // How often it has come up.
   [[nodiscard]] uint64_t connects() const { return connects_; }

   // Cut off it stays away until it is not.
   void cutOffIs( bool cutOff );

 private:
   enum class State : uint8_t { away, dialing, up };

   // One attempt and what came of it. Handlers that are under way share it, so that it outlives what they work on.
   struct Line {
      explicit Line( boost::asio::io_context & io ) : socket( io ) {}

      bool over = false;     // nobody is to act on it any more
      bool greeted = false;  // by the broker
      bool inHandshake = false;
      boost::asio::ip::tcp::socket socket;
      std::optional<boost::asio::ssl::stream<boost::asio::ip::tcp::socket &>> encrypted;
      ProtocolReader reader;
      std::array<char, 2048> room{};
      std::string waiting;  // to be written
      std::string writing;
   };

   void waitToDial();
   void dial();
   void lost( std::string const & why );
   void hangUp();
   void readOn();
   void handleRead( std::string_view bytes );
   void handle( ProtocolReader::Message const & message );
   void handleGreeting( std::string const & greeting );
   void startTls( std::string const & nonce );
   void introduce( std::string const & nonce );
   void handleLetter( ProtocolReader::Message const & letter );
   void send( std::string const & text );
   void sendOn();
   // Calls `use` with the stream as it is now, encrypted or not.
   template<typename Use>
   void onStream( Use use );
   // A handler that does nothing once its attempt is over.
   template<typename Handler>
   [[nodiscard]] auto guarded( Handler handler );

   LightNetwork const & network_;
   std::string const box_;
   NKey const * const key_;
   State state_ = State::away;
   bool cutOff_ = false;
   uint64_t connects_ = 0;
   std::string trouble_;
   std::vector<Letter> letters_;
   boost::asio::steady_timer timer_;
   std::shared_ptr<Line> line_;  // null while cut off
};

}  // namespace Fleet
