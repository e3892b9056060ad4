// The owner of a small fleet at his desk: his API and his stream without sockets, boxes that say what a test has them
// say, and a broker and a memory that can fail.
#pragma once

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <map>
#include <string>
#include <vector>

#include "BookLedger.h"
#include "controller/Api.h"
#include "controller/Feed.h"
#include "controller/Owner.h"

namespace FleetTest {

using namespace Fleet;

class Desk {
 public:
   explicit Desk( std::string const & inventory, Memory::Rows rows = {} );

   struct Answer {
      unsigned status = 0;
      boost::json::value body;
      std::string text;
      std::string by;

      [[nodiscard]] boost::json::value const & at( std::string const & pointer ) const {
         return body.at_pointer( pointer );
      }
      [[nodiscard]] std::string told( std::string const & pointer ) const {
         boost::json::value const & value = at( pointer );
         return value.is_string() ? std::string( value.get_string() ) : boost::json::serialize( value );
      }
   };
   // By user "eve" on the unix socket.
   Answer get( std::string const & target ) { return ask( { "GET", target, "" } ); }
   Answer post( std::string const & target ) { return ask( { "POST", target, "eve" } ); }
   Answer overNet( std::string const & method, std::string const & target, std::string const & authorization );

   // The next status of a box, of which all units are so.
   void says( std::string const & box, UnitState state = UnitState::active, std::string const & why = "" );
   // What has been wanted of a unit last, seen and carried out by its box.
   void obeys( std::string const & box, UnitState state );
   // From now on.
   void hushes( std::string const & box ) { statuses_.erase( box ); }
   void arrives( std::string const & key, std::string const & text ) { broker_.letters.push_back( { key, text } ); }
   // All boxes say what they said last, every ten seconds.
   void advance( double seconds );
   void clockBack( double seconds ) { wall_ -= seconds; }

   void brokerIs( bool there ) { broker_.there = there; }
   void brokerRefuses( std::string const & what ) { broker_.refusal = what; }
   void diskIs( bool good, bool readable = true ) {
      memory_.good = good;
      memory_.readable = readable;
   }
   // Of a box: what went to the broker last.
   [[nodiscard]] std::string sentTo( std::string const & box ) const;
   [[nodiscard]] std::size_t sent() const { return broker_.sent; }
   [[nodiscard]] std::vector<std::string> const & asked() const { return broker_.asked; }

   Owner & owner() { return owner_; }
   Feed & feed() { return feed_; }
   Api & api() { return api_; }
   [[nodiscard]] std::size_t logged( std::string const & part ) const;

 private:
   struct DeskBroker final : Broker {
      bool there = true;
      std::string refusal;
      std::size_t sent = 0;
      std::map<std::string, std::string> values;
      std::vector<std::string> asked;
      std::vector<Letter> letters;

      [[nodiscard]] bool connected() const override { return there; }
      [[nodiscard]] std::string trouble() const override { return there ? refusal : "nobody answers"; }
      bool put( std::string const & key, std::string const & text ) override {
         if( !there ) return false;
         // It hears what it says itself, as from the real one.
         if( key == "owner" ) return letters.push_back( { key, text } ), true;
         values[key] = text;
         ++sent;
         return true;
      }
      void read( std::string const & key ) override {
         asked.push_back( key );
         if( values.contains( key ) ) letters.push_back( { key, values[key] } );
      }
      [[nodiscard]] std::vector<Letter> arrived() override { return std::exchange( letters, {} ); }
   };
   struct DeskMemory final : BookLedger {
      bool good = true;
      bool readable = true;

      using BookLedger::commit;
      [[nodiscard]] Rows rows() const override {
         if( !readable ) throw MemoryFault( "the disk does not answer" );
         return kept;
      }
      void commit( Changes const & changes, Records const & happened ) override {
         if( !good ) throw MemoryFault( "the disk is full" );
         BookLedger::commit( changes, happened );
      }
   };

   Answer ask( Host::HttpRequest const & request );

   double wall_ = 1'800'000'000;
   DeskBroker broker_;
   DeskMemory memory_;
   std::vector<std::string> log_;
   std::map<std::string, Status> statuses_;
   Owner owner_;
   Feed feed_;
   Api api_;
};

}  // namespace FleetTest
