// A slot, a plan and a brake as the books keep them: JSON, read back by the same words.
//
// What does not read is a MemoryFault that says which row and what is wrong with it.
#pragma once

#include <string>
#include <string_view>

#include "plan/Books.h"

namespace Fleet {

[[nodiscard]] std::string rowOf( Slot const & slot );
[[nodiscard]] std::string rowOf( Plan const & plan );
[[nodiscard]] std::string rowOf( Brake const & brake );

// `key`: of the row, for the error.
[[nodiscard]] Slot slotFrom( std::string const & key, std::string_view text );
[[nodiscard]] Plan planFrom( std::string const & key, std::string_view text );
[[nodiscard]] Brake brakeFrom( std::string const & key, std::string_view text );

}  // namespace Fleet
