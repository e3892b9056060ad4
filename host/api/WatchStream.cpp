#include "api/WatchStream.h"

#include <charconv>

#include "kel/Json.h"
#include "streams/ChangeReader.h"
#include "streams/LineText.h"

namespace Host {

namespace {

using Kel::value;

class WatchStream final : public HttpStream {
 public:
   // `snapshot` comes first; null: none.
   WatchStream( std::unique_ptr<ChangeReader> reader, std::shared_ptr<ChangeHistory::Snapshot const> snapshot )
      : reader_( std::move( reader ) ), snapshot_( std::move( snapshot ) ) {}

   std::string next( std::size_t bytes ) override {
      if( snapshot_ ) return nextOfSnapshot( bytes );
      if( over_ ) return "";
      if( reader_->lost() ) return last( "too slow" );
      std::string lines = reader_->next( bytes );
      return lines.empty() && stopping_ ? last( "stopping" ) : lines;
   }
   [[nodiscard]] bool ended() const override { return over_; }
   void onMore( std::function<void()> more ) override { reader_->onMore( std::move( more ) ); }
   void stop() override { stopping_ = true; }

 private:
   std::string nextOfSnapshot( std::size_t bytes ) {
      std::string piece = snapshot_->line.substr( sent_, bytes );
      sent_ += piece.size();
      // As soon as it can: others may wait for that room.
      if( sent_ == snapshot_->line.size() ) snapshot_.reset();
      return piece;
   }
   std::string last( char const * why ) {
      over_ = true;
      return LineText::lastLine( reader_->place(), why );
   }

   std::unique_ptr<ChangeReader> const reader_;
   std::shared_ptr<ChangeHistory::Snapshot const> snapshot_;
   std::size_t sent_ = 0;  // bytes of it
   bool stopping_ = false;
   bool over_ = false;
};

// Of "after"; none where it is no number.
std::optional<uint64_t> numberOf( std::string const & text ) {
   uint64_t number = 0;
   auto const read = std::from_chars( text.data(), text.data() + text.size(), number );
   bool const whole = read.ec == std::errc() && read.ptr == text.data() + text.size();
   return whole ? std::optional( number ) : std::nullopt;
}

HttpAnswer resumed( std::unique_ptr<ChangeReader> reader, uint64_t after ) {
   if( reader->placeIs( after ) ) return httpLines( std::make_shared<WatchStream>( std::move( reader ), nullptr ) );
   auto const oldest = reader->oldest();
   std::string const text = "what changed after " + std::to_string( after ) +
                            " is not all kept any more; the oldest is " + std::to_string( oldest ) +
                            ". Watch it again from a snapshot";
   return {
      .status = 410,
      .body = Kel::toJson( value( Kel::Value::Object{ { "error", value( text ) }, { "oldest", value( oldest ) } } ) ) +
              "\n" };
}

}  // namespace

HttpAnswer watchAnswer( ChangeHistory & history, Target::Path const & path, Target::Parameters const & parameters ) {
   std::optional<uint64_t> after;
   for( auto const & [name, text] : parameters ) {
      auto const number = name == "after" && !after ? numberOf( text ) : std::nullopt;
      if( !number )
         return httpError( 400, "watch takes after=NUMBER, of a line of an earlier watch, and nothing else" );
      after = number;
   }
   std::unique_ptr<ChangeReader> reader;
   try {
      reader = std::make_unique<ChangeReader>( history, path );
   } catch( Kel::AttributeError const & trouble ) {
      return httpError( 404, trouble.what() );
   }
   if( after ) return resumed( std::move( reader ), *after );
   auto snapshot = reader->snapshot();
   if( !snapshot ) return httpError( 503, "too many snapshots wait for those who asked to read them; try again" );
   return httpLines( std::make_shared<WatchStream>( std::move( reader ), std::move( snapshot ) ) );
}

}  // namespace Host
