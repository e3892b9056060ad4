// The reading of one configuration file: the tables that say which keys a mapping has, and the checks that every
// section uses. Config.cpp makes the sections out of these.
//
// A Reading is made for one file. Whatever does not hold is added to its problems and the reading goes on, so the
// operator gets all of them; what was read is only used when there are none.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "config/Config.h"
#include "config/Quantity.h"
#include "config/YamlValue.h"

namespace Service::Config {

using Names = std::vector<std::string>;

// The reading of one file: what stands so far and what is wrong with it.
struct Reading {
   Config config;
   Problems problems;
   // The names that may be referred to. Absent until the section that defines them has been read; where it cannot be
   // read, that is the problem, and references into it are not held against anyone.
   std::optional<Names> profileNames;
   std::optional<Names> groupNames;
};

void addProblem( Reading & in, Position at, std::string text );

// Mappings with fixed keys: one table per mapping.

enum class Presence { optional, required };

template<typename T>
struct Field {
   std::string_view key;
   Presence presence;
   void ( *read )( Reading & in, Value const & value, T & into );
};

template<typename T>
struct Mapping {
   std::string_view name;  // as it reads in "unknown key 'x' in <name>"
   std::span<Field<T> const> fields;
};

template<typename T>
void refuseUnknownKeys( Reading & in, std::vector<Entry> const & given, Mapping<T> const & mapping ) {
   std::vector<std::string_view> keys;
   for( Field<T> const & field : mapping.fields ) keys.push_back( field.key );
   for( Entry const & entry : given ) {
      if( std::ranges::find( keys, entry.key ) != keys.end() ) continue;
      addProblem( in, entry.at,
                  "unknown key '" + entry.key + "' in " + std::string( mapping.name ) +
                     suggestion( entry.key, std::span<std::string_view const>( keys ) ) );
   }
}

// The first entry with this key, null when there is none.
[[nodiscard]] Entry const * find( std::vector<Entry> const & given, std::string_view key );

// Reads the fields in the order of the table, not of the file: a field may rely on those above it. Returns the entries
// for rules between fields; none when the value is no mapping.
template<typename T>
std::vector<Entry> readMapping( Reading & in, Value const & value, Mapping<T> const & mapping, T & into ) {
   auto const given = entriesOf( value, in.problems );
   if( !given ) return {};
   refuseUnknownKeys( in, *given, mapping );
   for( Field<T> const & field : mapping.fields ) {
      if( field.presence == Presence::required && !find( *given, field.key ) ) {
         addProblem( in, value.owner, std::string( mapping.name ) + " needs '" + std::string( field.key ) + "'" );
      }
      // Both entries of a key that is given twice: the repetition is reported elsewhere, and either may have problems
      // of its own.
      for( Entry const & entry : *given ) {
         if( entry.key == field.key ) field.read( in, entry.value, into );
      }
   }
   return *given;
}

// What a name must be; each adds the problem when it is not.
using NameCheck = void ( * )( Reading & in, Position at, std::string const & name );

void checkProfileName( Reading & in, Position at, std::string const & name );
void checkGroupName( Reading & in, Position at, std::string const & name );
void checkUnitName( Reading & in, Position at, std::string const & name );
void checkStageName( Reading & in, Position at, std::string const & name );
void checkInterfaceName( Reading & in, Position at, std::string const & name );

// The name must be one of those that its section defines.
void checkProfileReference( Reading & in, Position at, std::string const & name );
void checkGroupReference( Reading & in, Position at, std::string const & name );

// Values of fields. Nothing, or an empty text or list, where the value does not read; then the problem has been added.
[[nodiscard]] std::string readName( Reading & in, Value const & value, NameCheck check );
[[nodiscard]] Names readNames( Reading & in, Value const & value, NameCheck check );  // none may stand in it twice
[[nodiscard]] std::optional<double> readThresholdKbps( Reading & in, Value const & value );
[[nodiscard]] std::optional<double> readSampleInterval( Reading & in, Value const & value );
[[nodiscard]] std::optional<double> readSeconds( Reading & in, Value const & value );
[[nodiscard]] std::optional<double> readSecondsAboveZero( Reading & in, Value const & value );
[[nodiscard]] std::optional<std::uint32_t> readWholeSeconds( Reading & in, Value const & value );

}  // namespace Service::Config
