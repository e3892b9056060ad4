// What a request asks for, as the API's requests name it: a path, and parameters after it.
#pragma once

#include <boost/url/encode.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>
#include <initializer_list>
#include <string>
#include <string_view>

namespace Cli {

// All that is appended is percent-encoded but for the unreserved characters (RFC 3986, section 2.3): a name may have
// slashes, and a blank must not become a "+".
class Target {
 public:
   // Below /v1.
   Target( std::initializer_list<std::string_view> components ) {
      for( std::string_view const component : components ) append( component );
   }

   void append( std::string_view component ) { text_ += "/" + encoded( component ); }
   // After all components.
   void parameter( std::string_view name, std::string_view value ) {
      text_ += ( hasParameters_ ? "&" : "?" ) + encoded( name ) + "=" + encoded( value );
      hasParameters_ = true;
   }

   [[nodiscard]] std::string const & text() const { return text_; }

 private:
   [[nodiscard]] static std::string encoded( std::string_view text ) {
      return boost::urls::encode( text, boost::urls::unreserved_chars );
   }

   std::string text_ = "/v1";
   bool hasParameters_ = false;
};

}  // namespace Cli
