// How the page of a window looks: one style sheet, for screens light and dark, wide and narrow, and for paper.
#pragma once

#include <string_view>

namespace Report {

// What goes into the page's <style>.
[[nodiscard]] std::string_view windowStyle();

}  // namespace Report
