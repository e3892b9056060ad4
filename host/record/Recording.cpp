#include "record/Recording.h"

#include <utility>

#include "kel/Json.h"

namespace Host {

namespace {

std::string numberText( double number ) { return Kel::toJson( Kel::value( number ) ); }

}  // namespace

Recording::Recording( std::shared_ptr<Journal> journal, std::optional<double> end )
   : journal_( std::move( journal ) ), end_( end ) {
   journal_->listenerIs( &more_ );
}

Recording::~Recording() { journal_->listenerDel( &more_ ); }

void Recording::beginIs( std::deque<std::string> lines, double clock ) {
   begin_ = std::move( lines );
   begun_ = true;
   clock_ = clock;
   place_ = journal_->end();
   if( more_ ) more_();
}

std::string Recording::next( std::size_t bytes ) {
   std::string text;
   while( !over_ && text.size() < bytes ) {
      std::string const lines = nextLines();
      if( lines.empty() ) break;
      text += lines;
   }
   return text;
}

std::string Recording::nextLines() {
   if( !begin_.empty() ) {
      std::string const line = std::move( begin_.front() );
      begin_.pop_front();
      return line + "\n";
   }
   if( begun_ && place_ < journal_->begin() ) return lastLine( "ends early: it was not read as fast as it came" );
   bool const more = begun_ && place_ < journal_->end();
   if( !more ) return stopped_ ? lastLine( "ends early: maintd stops" ) : "";
   Journal::Turn const & turn = journal_->turn( place_++ );
   if( !end_ || turn.at < *end_ ) return textOf( turn );
   return stepTo( *end_ ) + lastLine( "ends here, as was asked for" );
}

std::string Recording::textOf( Journal::Turn const & turn ) {
   std::string text = stepTo( turn.reach );
   double const late = turn.at - clock_;
   if( !( late > 0 ) ) return turn.lines.empty() ? text : text + "{\"batch\": [" + turn.lines + "]}\n";
   clock_ += late;
   return text + "{\"batch\": [" + turn.lines + "], \"after\": " + numberText( late ) + "}\n";
}

std::string Recording::stepTo( double time ) {
   double const step = time - clock_;
   if( !( step > 0 ) ) return "";
   // As the replay adds it up.
   clock_ += step;
   return "{\"advance\": " + numberText( step ) + "}\n";
}

std::string Recording::lastLine( std::string const & why ) {
   over_ = true;
   return "# The recording " + why + ".\n";
}

}  // namespace Host
