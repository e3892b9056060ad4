#include "controller/Feed.h"

#include <algorithm>
#include <boost/json/serialize.hpp>

namespace Fleet {

namespace json = boost::json;

namespace {

std::string eventText( char const * name, std::string const & data ) {
   // JSON has no line's end in it, which would begin another field.
   return std::string( "event: " ) + name + "\ndata: " + data + "\n\n";
}

std::string timeText( double time ) { return json::serialize( numberView( time ) ); }

// An object's text with a member before its others.
std::string withMember( std::string const & member, std::string const & object ) {
   return "{" + member + "," + object.substr( 1 );
}

}  // namespace

class Feed::Stream final : public Host::HttpStream {
 public:
   explicit Stream( Feed & feed ) : feed_( feed ) { feed_.streams_.insert( this ); }
   ~Stream() override { feed_.streams_.erase( this ); }
   Stream( Stream const & ) = delete;
   Stream & operator=( Stream const & ) = delete;

   std::string next( std::size_t bytes ) override {
      std::string text;
      if( fleet_ != feed_.fleetVersion_ ) {
         fleet_ = feed_.fleetVersion_;
         text += eventText( "fleet", withMember( now(), feed_.fleet_ ) );
      }
      text += boxes( bytes );
      if( text.empty() && quiet() ) text = ": nothing new\n\n";
      if( !text.empty() ) toldAt_ = feed_.refreshes_;
      waiting_ = text.empty();
      return text;
   }
   [[nodiscard]] bool ended() const override { return false; }
   void onMore( std::function<void()> more ) override { more_ = std::move( more ); }

   void handleRefresh() {
      bool const news = fleet_ != feed_.fleetVersion_ || place_ != feed_.version_ || inventory_ != feed_.inventory_;
      if( !waiting_ || !( news || quiet() ) ) return;
      waiting_ = false;
      if( more_ ) more_();
   }

 private:
   // A refresh is a second.
   [[nodiscard]] bool quiet() const { return feed_.refreshes_ >= toldAt_ + commentSeconds; }
   [[nodiscard]] std::string now() const { return "\"now\":" + timeText( feed_.parts_.now() ); }

   std::string boxes( std::size_t bytes ) {
      bool const first = inventory_ != feed_.inventory_;
      if( first ) place_ = 0;
      std::string list;
      for( auto at = feed_.byVersion_.upper_bound( place_ ); at != feed_.byVersion_.end() && list.size() < bytes;
           ++at ) {
         place_ = at->first;
         list += ( list.empty() ? "" : "," ) + feed_.boxText( *at->second, feed_.told_.at( *at->second ) );
      }
      if( list.empty() ) return {};
      inventory_ = feed_.inventory_;
      return eventText( "boxes", "{" + now() + ( first ? ",\"first\":true" : "" ) + ",\"boxes\":[" + list + "]}" );
   }

   Feed & feed_;
   uint64_t fleet_ = 0;      // version that it was told
   uint64_t place_ = 0;      // all changes of boxes up to this one
   uint64_t inventory_ = 0;  // that those are of; 0: of none yet
   uint64_t toldAt_ = 0;     // refresh, when it was told anything
   bool waiting_ = false;
   std::function<void()> more_;
};

bool Feed::Told::is( Survey::BoxLook const & look ) const {
   uint64_t const lifeNow = look.heard ? look.heard->status.life : 0;
   uint64_t const sequenceNow = look.heard ? look.heard->status.sequence : 0;
   bool const same = version != 0 && life == lifeNow && sequence == sequenceNow && silent == look.silent;
   return same && std::ranges::equal( units, look.units, []( Standing const & one, Standing const & other ) {
             return one.out == other.out && one.why == other.why;
          } );
}

std::shared_ptr<Host::HttpStream> Feed::stream() {
   if( streams_.empty() ) refresh();
   return std::make_shared<Stream>( *this );
}

void Feed::handleTurn() {
   ++turns_;
   bool const early = parts_.now() < refreshedAt_ + 1 && turns_ < standingTurns;
   if( streams_.empty() || early ) return;
   refresh();
   for( Stream * stream : streams_ ) stream->handleRefresh();
}

void Feed::handleInventory() {
   told_.clear();
   byVersion_.clear();
   refresh();
   ++inventory_;
}

void Feed::refresh() {
   if( inventory_ == 0 ) inventory_ = 1;
   refreshedAt_ = parts_.now();
   ++refreshes_;
   turns_ = 0;
   Survey const survey = surveyOf( parts_.dispatcher, refreshedAt_ );
   for( Survey::BoxLook const & look : survey.boxes ) refreshBox( look );
   json::object fleet = fleetView( parts_.dispatcher, survey, parts_.surroundings() );
   fleet.stable_erase( "now" );
   std::string text = json::serialize( fleet );
   if( text == fleet_ ) return;
   fleet_ = std::move( text );
   ++fleetVersion_;
}

void Feed::refreshBox( Survey::BoxLook const & look ) {
   auto const [at, isNew] = told_.try_emplace( look.box->name );
   Told & told = at->second;
   if( told.is( look ) ) return;
   told.life = look.heard ? look.heard->status.life : 0;
   told.sequence = look.heard ? look.heard->status.sequence : 0;
   told.silent = look.silent;
   told.units = look.units;
   json::object view = boxView( look );
   view.stable_erase( "heard" );
   std::string text = json::serialize( view );
   if( text == told.text ) return;
   told.text = std::move( text );
   byVersion_.erase( told.version );
   told.version = ++version_;
   byVersion_[told.version] = &at->first;
}

std::string Feed::boxText( std::string const & name, Told const & told ) const {
   Dispatcher::Heard const * const heard = parts_.dispatcher.heard( name );
   return withMember( "\"heard\":" + ( heard ? timeText( heard->at ) : "null" ), told.text );
}

}  // namespace Fleet
