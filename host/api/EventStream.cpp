#include "api/EventStream.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "kel/Json.h"

namespace Host {

using Kel::value;
using Service::Event;
using Service::EventLog;

namespace {

struct EventsQuery {
   std::optional<uint64_t> after;
   std::string unit;  // empty: of all
};

std::optional<EventsQuery> eventsQuery( Target::Parameters const & given ) {
   EventsQuery query;
   for( auto const & [name, text] : given ) {
      if( name == "after" && !query.after ) {
         uint64_t number = 0;
         auto const read = std::from_chars( text.data(), text.data() + text.size(), number );
         if( read.ec != std::errc() || read.ptr != text.data() + text.size() ) return std::nullopt;
         query.after = number;
      } else if( name == "unit" && query.unit.empty() && !text.empty() ) {
         query.unit = text;
      } else {
         return std::nullopt;
      }
   }
   return query;
}

HttpAnswer historyGone( EventLog const & log, uint64_t after ) {
   std::string const oldest = std::to_string( log.oldest() );
   std::string const error = after > log.last()
                                ? "there is no event " + std::to_string( after ) + " yet; the latest is " +
                                     std::to_string( log.last() ) + ", the oldest that is kept " + oldest
                                : "what followed event " + std::to_string( after ) +
                                     " is not kept any more; the oldest that is kept is event " + oldest;
   return { .status = 410,
            .body = Kel::toJson( value(
                       Kel::Value::Object{ { "error", value( error ) }, { "oldest", value( log.oldest() ) } } ) ) +
                    "\n" };
}

}  // namespace

EventStream::EventStream( std::shared_ptr<EventLog> log, uint64_t after, Wanted wanted )
   : log_( std::move( log ) ),
     wanted_( std::move( wanted ) ),
     at_( after ),
     listener_( *log_, [this]( Event const & event ) { handleEvent( event ); } ) {}

void EventStream::handleEvent( Event const & event ) {
   if( !waiting_ ) return;
   if( wanted_ && !wanted_( event ) ) {
      at_ = event.seq;
      return;
   }
   waiting_ = false;
   if( more_ ) more_();
}

std::string EventStream::next( std::size_t bytes ) {
   if( ended_ ) return {};
   if( at_ != log_->last() && !log_->has( at_ ) ) return lastLine( "too slow" );
   std::string lines;
   EventLog::Entry const * entry = log_->next( at_ );
   for( ; entry && lines.size() < bytes; entry = log_->next( at_ ) ) {
      at_ = entry->seq();
      if( !wanted_ || wanted_( entry->event() ) ) lines += entry->line();
   }
   if( stopping_ && !entry ) return lines + lastLine( "stopping" );
   waiting_ = lines.empty();
   return lines;
}

std::string EventStream::lastLine( char const * why ) {
   ended_ = true;
   return Kel::toJson( value( Kel::Value::Object{
             { "seq", value( at_ ) }, { "end", value( why ) }, { "resumeAfter", value( at_ ) } } ) ) +
          "\n";
}

HttpAnswer eventsAnswer( Service::MaintenanceService const & service, Target::Parameters const & parameters ) {
   auto const query = eventsQuery( parameters );
   if( !query ) return httpError( 400, "events takes after=NUMBER and unit=UNIT, each once, and nothing else" );
   auto const & units = service.config().units;
   bool const isUnit = std::ranges::find( units, query->unit, &Service::Config::Unit::name ) != units.end();
   if( !query->unit.empty() && !isUnit ) {
      return httpError( 404,
                        "there is no unit \"" + query->unit + "\"; the units are: " + service.views().unitNames() );
   }
   EventLog const & log = *service.events();
   uint64_t const after = query->after.value_or( log.last() );
   if( !log.has( after ) ) return historyGone( log, after );
   EventStream::Wanted wanted;
   if( !query->unit.empty() ) {
      wanted = [&service, unit = query->unit]( Event const & event ) { return service.concerns( event, unit ); };
   }
   return httpLines( std::make_shared<EventStream>( service.events(), after, std::move( wanted ) ) );
}

}  // namespace Host
