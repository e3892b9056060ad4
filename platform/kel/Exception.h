// The platform's exceptions. An InternalException or RangeError that nobody catches ends the agent like a failed
// assertion: handlers of the plug-in do not catch them, so a broken record never turns into a silent wrong answer.
#pragma once

#include <stdexcept>
#include <string>

namespace Kel {

// A record or name that cannot mean anything, for example a stage instance name without a generation id.
class InternalException : public std::runtime_error {
 public:
   explicit InternalException( std::string const & what ) : std::runtime_error( what ) {}
};

// A value outside the range of its type, or a null where a reference is required.
class RangeError : public std::range_error {
 public:
   explicit RangeError( std::string const & what ) : std::range_error( what ) {}
};

// Reports a null reference given for an attribute that must have one. The stray quote is part of the text that people
// search for.
[[noreturn, gnu::cold]] inline void refuseNull( char const * typeName, std::string const & attribute ) {
   throw RangeError( "null _" + attribute + " parameter to mutator for " + typeName + "::" + attribute +
                     " not allowed\"" );
}

// Reads or writes through the reflection that make no sense for the attribute: wrong type, unknown name.
class AttributeError : public std::runtime_error {
 public:
   explicit AttributeError( std::string const & what ) : std::runtime_error( what ) {}
};

}  // namespace Kel
