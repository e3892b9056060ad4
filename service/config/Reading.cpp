#include "config/Reading.h"

#include <cmath>
#include <unordered_set>
#include <utility>

namespace Service::Config {

namespace {

struct NameRule {
   std::string_view what;
   std::string_view forbidden;  // characters
   std::string_view reason;     // why they are forbidden
};

constexpr NameRule profileNameRule = { "profile name", "/", "it is part of paths in the state database" };
constexpr NameRule groupNameRule = { "group name", "/", "it is part of paths in the state database" };
constexpr NameRule unitNameRule = { "unit name", "#/", "it is part of stage instance names and of paths" };
constexpr NameRule stageNameRule = { "stage name", "#/:", "it is part of stage marks and of paths" };

void checkName( Reading & in, Position at, std::string const & name, NameRule const & rule ) {
   std::string const what( rule.what );
   if( name.empty() ) return addProblem( in, at, "a " + what + " must not be empty" );
   if( std::ranges::any_of( name, isControl ) ) {
      return addProblem( in, at, "a " + what + " must not contain control characters" );
   }
   std::size_t const bad = name.find_first_of( rule.forbidden );
   if( bad == std::string::npos ) return;
   addProblem( in, at, what + " '" + name + "' must not contain '" + name[bad] + "': " + std::string( rule.reason ) );
}

void checkReference( Reading & in, Position at, std::string const & name, std::string_view what,
                     std::optional<Names> const & known ) {
   // A section that could not be read is the problem then, and what refers into it may well be right.
   if( !known || std::ranges::find( *known, name ) != known->end() ) return;
   addProblem( in, at,
               "there is no " + std::string( what ) + " '" + name + "'" +
                  suggestion( name, std::span<std::string const>( *known ) ) );
}

[[nodiscard]] std::optional<double> readQuantity( Reading & in, Value const & value,
                                                  Quantity ( *measure )( std::string_view ) ) {
   auto const text = textOf( value, in.problems );
   if( !text ) return std::nullopt;
   Quantity const quantity = measure( *text );
   if( quantity.reason.empty() ) return quantity.value;
   addProblem( in, value.at, quantity.reason );
   return std::nullopt;
}

}  // namespace

void addProblem( Reading & in, Position at, std::string text ) { addProblem( in.problems, at, std::move( text ) ); }

Entry const * find( std::vector<Entry> const & given, std::string_view key ) {
   auto const entry = std::ranges::find( given, key, &Entry::key );
   return entry == given.end() ? nullptr : &*entry;
}

void checkProfileName( Reading & in, Position at, std::string const & name ) {
   checkName( in, at, name, profileNameRule );
   if( !name.starts_with( '#' ) ) return;
   addProblem( in, at, "profile name '" + name + "' must not start with '#': such names are reserved for the service" );
}

void checkGroupName( Reading & in, Position at, std::string const & name ) { checkName( in, at, name, groupNameRule ); }

void checkUnitName( Reading & in, Position at, std::string const & name ) { checkName( in, at, name, unitNameRule ); }

void checkStageName( Reading & in, Position at, std::string const & name ) { checkName( in, at, name, stageNameRule ); }

// The kernel's rules for the name of a network device (dev_valid_name() in net/core/dev.c; its IFNAMSIZ of 16 bytes has
// room for a NUL). Control characters are refused on top: the kernel takes most of them, but they would break the lines
// of messages and tables.
// What every host takes: whether there is a link of that name, and whether its system could have one, is seen when the
// configuration meets the box.
void checkInterfaceName( Reading & in, Position at, std::string const & name ) {
   constexpr std::size_t maxBytes = 63;
   std::string const quoted = "interface name '" + name + "' ";
   if( name.empty() ) return addProblem( in, at, "an interface name must not be empty" );
   if( name.size() > maxBytes ) return addProblem( in, at, quoted + "is longer than 63 bytes" );
   auto const forbidden = []( char c ) { return c == ' ' || isControl( c ); };
   if( std::ranges::any_of( name, forbidden ) )
      addProblem( in, at, quoted + "must not contain blanks or control characters" );
}

void checkProfileReference( Reading & in, Position at, std::string const & name ) {
   checkReference( in, at, name, "profile", in.profileNames );
}

void checkGroupReference( Reading & in, Position at, std::string const & name ) {
   checkReference( in, at, name, "group", in.groupNames );
}

std::string readName( Reading & in, Value const & value, NameCheck check ) {
   auto const name = textOf( value, in.problems );
   if( name ) check( in, value.at, *name );
   return name.value_or( "" );
}

Names readNames( Reading & in, Value const & value, NameCheck check ) {
   Names names;
   std::unordered_set<std::string> known;  // a list can have a hundred thousand
   auto const items = itemsOf( value, in.problems );
   if( !items ) return names;
   for( Value const & item : *items ) {
      auto const name = textOf( item, in.problems );
      // Two items that are no texts at all are no repetition.
      if( !name ) continue;
      check( in, item.at, *name );
      bool const repeated = !known.insert( *name ).second;
      if( repeated ) addProblem( in, item.at, "'" + *name + "' is in this list twice" );
      names.push_back( *name );
   }
   return names;
}

std::optional<double> readThresholdKbps( Reading & in, Value const & value ) {
   auto const kbps = readQuantity( in, value, rateKbps );
   // An exact comparison will do, as no rate is negative.
   if( kbps == 0.0 ) {
      addProblem( in, value.at,
                  "'" + value.node.Scalar() +
                     "' can never be met: traffic is quiet when it is below the threshold, and no traffic is below 0" );
   }
   return kbps;
}

std::optional<double> readSampleInterval( Reading & in, Value const & value ) {
   auto const seconds = readSeconds( in, value );
   if( seconds && *seconds < 1 ) {
      addProblem( in, value.at,
                  "'" + value.node.Scalar() + "' must be 1s or more: samples are taken on a beat of one second" );
   }
   return seconds;
}

std::optional<double> readSeconds( Reading & in, Value const & value ) {
   return readQuantity( in, value, durationSeconds );
}

std::optional<double> readSecondsAboveZero( Reading & in, Value const & value ) {
   auto const seconds = readSeconds( in, value );
   // An exact comparison will do, as no duration is negative.
   if( seconds == 0.0 ) addProblem( in, value.at, "'" + value.node.Scalar() + "' must be more than 0s" );
   return seconds;
}

std::optional<std::uint32_t> readWholeSeconds( Reading & in, Value const & value ) {
   auto const seconds = readSeconds( in, value );
   if( !seconds ) return std::nullopt;
   // The cast holds: no duration is longer than 32 bits of seconds.
   if( *seconds == std::floor( *seconds ) ) return static_cast<std::uint32_t>( *seconds );
   addProblem( in, value.at, "'" + value.node.Scalar() + "' must be whole seconds" );
   return std::nullopt;
}

}  // namespace Service::Config
