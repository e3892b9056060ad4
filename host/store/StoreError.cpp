#include "store/StoreError.h"

namespace Host {

namespace {

std::string howToGoOn( StoreError::Kind kind, std::string const & path ) {
   switch( kind ) {
      case StoreError::Kind::damaged:
         return "no link is touched. \"maintctl release --all\" sets up the links that it says are held; to start "
                "without it, do that first and then move " +
                path + " and " + path + "-wal away";
      case StoreError::Kind::foreign:
         return "it is left as it is, and no link is touched. Move it away, or have another directory for the store";
      case StoreError::Kind::newer:
         return "it is left as it is, and no link is touched. Start the version that wrote it; \"maintctl release "
                "--all\" of that version sets up the links that are held";
      case StoreError::Kind::unwritable:
         return "no link is touched until it can be written. It and its directory have to be writable for the user of "
                "maintd";
      case StoreError::Kind::full: return "no link is touched until it can be written. Make room for it";
      case StoreError::Kind::busy:
         return "no link is touched. While maintd runs, ask it; otherwise end the process that has it open";
   }
   return {};
}

}  // namespace

StoreError::StoreError( Kind kind, std::string const & path, std::string const & what )
   : std::runtime_error( path + ": " + what + "; " + howToGoOn( kind, path ) ), kind_( kind ) {}

}  // namespace Host
