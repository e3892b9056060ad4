#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "orders/Orders.h"

namespace Fleet {

namespace {

template<typename E>
using Words = std::span<std::pair<E, std::string_view> const>;

constexpr std::array wants{ std::pair( Want::service, std::string_view( "service" ) ),
                            std::pair( Want::maintenance, std::string_view( "maintenance" ) ),
                            std::pair( Want::nothing, std::string_view( "nothing" ) ) };
constexpr std::array deadlines{ std::pair( AtDeadline::hold, std::string_view( "hold" ) ),
                                std::pair( AtDeadline::giveBack, std::string_view( "give-back" ) ) };
// As maintd writes them.
constexpr std::array states{ std::pair( UnitState::unknown, std::string_view( "unknown" ) ),
                             std::pair( UnitState::active, std::string_view( "active" ) ),
                             std::pair( UnitState::entering, std::string_view( "entering" ) ),
                             std::pair( UnitState::inMaintenance, std::string_view( "inMaintenance" ) ),
                             std::pair( UnitState::failed, std::string_view( "failed" ) ),
                             std::pair( UnitState::leaving, std::string_view( "leaving" ) ) };
constexpr std::array outcomes{ std::pair( Outcome::none, std::string_view( "none" ) ),
                               std::pair( Outcome::begun, std::string_view( "begun" ) ),
                               std::pair( Outcome::carried, std::string_view( "carried" ) ),
                               std::pair( Outcome::expired, std::string_view( "expired" ) ),
                               std::pair( Outcome::refused, std::string_view( "refused" ) ),
                               std::pair( Outcome::gaveBack, std::string_view( "gave back" ) ),
                               std::pair( Outcome::undone, std::string_view( "undone" ) ) };

template<typename E>
std::string_view wordOf( Words<E> words, E value ) {
   auto const word = std::ranges::find( words, value, &std::pair<E, std::string_view>::first );
   return word == words.end() ? std::string_view( "?" ) : word->second;
}

template<typename E>
std::optional<E> valueOf( Words<E> words, std::string_view name ) {
   auto const word = std::ranges::find( words, name, &std::pair<E, std::string_view>::second );
   return word == words.end() ? std::nullopt : std::optional( word->first );
}

}  // namespace

std::string_view nameOf( Want want ) { return wordOf<Want>( wants, want ); }
std::string_view nameOf( AtDeadline at ) { return wordOf<AtDeadline>( deadlines, at ); }
std::string_view nameOf( UnitState state ) { return wordOf<UnitState>( states, state ); }
std::string_view nameOf( Outcome outcome ) { return wordOf<Outcome>( outcomes, outcome ); }

template<>
std::optional<Want> named( std::string_view name ) {
   return valueOf<Want>( wants, name );
}
template<>
std::optional<AtDeadline> named( std::string_view name ) {
   return valueOf<AtDeadline>( deadlines, name );
}
template<>
std::optional<UnitState> named( std::string_view name ) {
   return valueOf<UnitState>( states, name );
}
template<>
std::optional<Outcome> named( std::string_view name ) {
   return valueOf<Outcome>( outcomes, name );
}

std::optional<UnitName> unitNamed( std::string_view text ) {
   std::size_t const slash = text.find( '/' );
   if( slash == 0 || slash == std::string_view::npos || slash + 1 == text.size() ) return std::nullopt;
   if( text.find( '/', slash + 1 ) != std::string_view::npos ) return std::nullopt;
   return UnitName{ std::string( text.substr( 0, slash ) ), std::string( text.substr( slash + 1 ) ) };
}

}  // namespace Fleet
