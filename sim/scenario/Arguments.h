// What the lines of a scenario ask of their JSON: paths, names, numbers, lists. What does not fit is an error of the
// line, at the column where it stands.
#pragma once

#include <string>
#include <vector>

#include "dovra/StatePath.h"
#include "quill/CounterTable.h"
#include "scenario/Json.h"

namespace Sim {

// Runs what reads or writes records, which know nothing of lines: what they refuse is an error of the line, at this
// column.
template<class Do>
auto atColumn( std::size_t column, Do const & act ) {
   try {
      return act();
   } catch( Kel::AttributeError const & error ) {
      throw LineError( column, error.what() );
   } catch( KelQuill::TableError const & error ) {
      throw LineError( column, error.what() );
   }
}

// A path; a number in it, such as a VLAN's, is the text of a key.
[[nodiscard]] Dovra::StateComponents components( Json const & path );
// A number from 0 to `atMost`; `wanted` is what the error calls it.
[[nodiscard]] double amount( Json const & json, char const * wanted, double atMost );
// A text; `wanted` is what the error asks for.
[[nodiscard]] std::string text( Json const & json, char const * wanted );
[[nodiscard]] std::vector<std::string> texts( Json const & json, char const * wantedList, char const * wanted );

}  // namespace Sim
