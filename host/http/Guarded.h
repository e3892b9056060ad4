// What a request's own part in a turn throws costs the request its answer, and nobody else anything.
#pragma once

#include <optional>
#include <string>

#include "kel/Exception.h"

namespace Host {

// Why `step` failed; none when it did not. Our own broken invariants pass: the state behind them must not be served on.
template<class Step>
[[nodiscard]] std::optional<std::string> guarded( Step const & step ) {
   try {
      step();
      return std::nullopt;
   } catch( Kel::InternalException const & ) {
      throw;
   } catch( Kel::RangeError const & ) {
      throw;
   } catch( std::exception const & error ) {
      return error.what();
   }
}

}  // namespace Host
