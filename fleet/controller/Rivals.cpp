#include "controller/Rivals.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <random>

namespace Fleet {

namespace json = boost::json;

namespace {

std::string markMade() {
   std::random_device random;
   return std::to_string( random() ) + "-" + std::to_string( random() );
}

}  // namespace

Rivals::Rivals( std::string const & where )
   : mark_( markMade() ), saying_( json::serialize( json::object{ { "owner", where }, { "mark", mark_ } } ) ) {}

void Rivals::heard( std::string const & text ) {
   boost::system::error_code error;
   json::value const document = json::parse( text, error );
   json::object const * const said = error ? nullptr : document.if_object();
   json::value const * const who = said ? said->if_contains( "owner" ) : nullptr;
   json::value const * const mark = said ? said->if_contains( "mark" ) : nullptr;
   bool const readable = who && who->is_string() && mark && mark->is_string();
   if( readable && mark->get_string() == mark_ ) return;
   // One of another release is one all the same.
   other_ = readable ? std::string( who->get_string() ) : "which says nothing that can be read";
   otherAt_ = turns_;
}

std::string const & Rivals::other() const {
   static std::string const nobody;
   return other_.empty() || turns_ - otherAt_ > goneTurns ? nobody : other_;
}

}  // namespace Fleet
