// Windows as answers: what is kept of each stay in maintenance, and the list of all of them.
//
// Reads records, changes nothing.
#pragma once

#include <optional>
#include <string_view>

#include "evidence/Windows.h"
#include "views/WindowAnswer.h"

namespace Service {

class WindowView {
 public:
   explicit WindowView( Kel::Ptr<Evidence::WindowDir const> windows ) : windows_( std::move( windows ) ) {}

   [[nodiscard]] WindowsAnswer windows() const;  // the latest request first
   // None when no such window is kept.
   [[nodiscard]] std::optional<WindowAnswer> window( std::string_view unit, uint32_t generation ) const;

 private:
   Kel::Ptr<Evidence::WindowDir const> const windows_;
};

// A window as it stands at `asOf`, seconds on the loop's clock.
[[nodiscard]] WindowAnswer windowAnswer( Evidence::Window const & window, double asOf );

}  // namespace Service
