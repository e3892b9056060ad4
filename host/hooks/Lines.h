// What a hook writes, as lines for the log.
//
// 64 KiB at most; then one line says that the rest is dropped. Empty lines are left out, long ones cut into pieces of
// 1,000 bytes. What a terminal or a reader of the log could take for something else than text is shown as \xNN: control
// characters but the tabulator, and whatever is no UTF-8.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace Host {

class Lines {
 public:
   using Line = std::function<void( std::string const & line )>;

   explicit Lines( Line line ) : line_( std::move( line ) ) {}

   void take( std::string_view bytes );
   // No more comes: a last line without its end is one, too.
   void end();

   [[nodiscard]] bool dropping() const { return left_ == 0; }
   // The last line that was told; empty when there was none, or when it is not known for what has been dropped.
   [[nodiscard]] std::string const & last() const { return last_; }

 private:
   Line const line_;
   std::string begun_;
   std::string last_;
   std::size_t left_ = 64 * 1024;
};

}  // namespace Host
