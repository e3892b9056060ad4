#include "controller/Keys.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>
#include <sys/stat.h>

#include <boost/beast/core/string.hpp>
#include <sstream>
#include <stdexcept>

#include "files/FileText.h"

namespace Fleet {

namespace {

// Of one length, whatever was given: how long a key is does not show in the time that comparing takes.
std::string digestOf( std::string_view key ) {
   std::string digest( SHA256_DIGEST_LENGTH, '\0' );
   ::SHA256( reinterpret_cast<unsigned char const *>( key.data() ), key.size(),
             reinterpret_cast<unsigned char *>( digest.data() ) );
   return digest;
}

}  // namespace

Keys Keys::inFile( std::string const & path ) {
   struct stat file {};
   std::string const text = Host::fileText( path );
   if( ::stat( path.c_str(), &file ) == 0 && ( file.st_mode & S_IRWXO ) != 0 )
      throw std::runtime_error( path + ": everybody may read or write these keys; chmod o= is needed" );
   return Keys( text, path );
}

Keys::Keys( std::string_view text, std::string const & fileName ) {
   std::istringstream lines{ std::string( text ) };
   std::size_t number = 0;
   for( std::string line; std::getline( lines, line ); ) {
      ++number;
      std::istringstream words( line );
      std::string name;
      std::string key;
      std::string more;
      words >> name;
      if( name.empty() || name.starts_with( '#' ) ) continue;
      words >> key >> more;
      std::string const at = fileName + ":" + std::to_string( number ) + ": ";
      if( key.empty() || !more.empty() ) throw std::runtime_error( at + "a line has a name and a key, and no more" );
      if( key.size() < leastBytes )
         throw std::runtime_error( at + "a key has " + std::to_string( leastBytes ) + " characters or more" );
      keys_.push_back( { name, digestOf( key ) } );
   }
}

std::optional<std::string> Keys::ownerOf( std::string_view authorization ) const {
   constexpr std::string_view scheme = "bearer ";
   bool const isBearer = boost::beast::iequals( authorization.substr( 0, scheme.size() ), scheme );
   std::string const given = digestOf( isBearer ? authorization.substr( scheme.size() ) : "" );
   Key const * owner = nullptr;
   // Through to the end, also behind the one that fits.
   for( Key const & key : keys_ ) {
      if( ::CRYPTO_memcmp( key.digest.data(), given.data(), given.size() ) == 0 ) owner = &key;
   }
   if( !owner ) return std::nullopt;
   return owner->name;
}

}  // namespace Fleet
