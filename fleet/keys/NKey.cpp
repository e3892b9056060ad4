#include "keys/NKey.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/crc.hpp>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <span>
#include <vector>

namespace Fleet {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::string_view base32Letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
// The first letters of the text: of a user's public key 'U', of a user's seed 'S' and 'U'.
constexpr uint8_t userPrefix = 20 << 3;
constexpr uint8_t seedPrefix = 18 << 3;
constexpr uint8_t seedOfUser[] = { seedPrefix | ( userPrefix >> 5 ), uint8_t( ( userPrefix & 31 ) << 3 ) };
constexpr std::size_t crcBytes = 2;

std::string base32Of( Bytes const & bytes ) {
   std::string text;
   unsigned bits = 0;
   unsigned held = 0;
   for( uint8_t const byte : bytes ) {
      bits = bits << 8 | byte;
      for( held += 8; held >= 5; held -= 5 ) text += base32Letters[bits >> ( held - 5 ) & 31];
   }
   if( held > 0 ) text += base32Letters[bits << ( 5 - held ) & 31];
   return text;
}

std::optional<Bytes> fromBase32( std::string_view text ) {
   Bytes bytes;
   unsigned bits = 0;
   unsigned held = 0;
   for( char const letter : text ) {
      std::size_t const value = base32Letters.find( letter );
      if( value == std::string_view::npos ) return std::nullopt;
      bits = bits << 5 | static_cast<unsigned>( value );
      held += 5;
      if( held < 8 ) continue;
      held -= 8;
      bytes.push_back( static_cast<uint8_t>( bits >> held ) );
   }
   return bytes;
}

uint16_t crcOf( Bytes const & bytes ) {
   boost::crc_xmodem_t crc;
   crc.process_bytes( bytes.data(), bytes.size() );
   return crc.checksum();
}

std::string encoded( std::span<uint8_t const> prefix, std::span<uint8_t const> raw ) {
   Bytes bytes( prefix.begin(), prefix.end() );
   bytes.insert( bytes.end(), raw.begin(), raw.end() );
   uint16_t const crc = crcOf( bytes );
   bytes.push_back( static_cast<uint8_t>( crc ) );
   bytes.push_back( static_cast<uint8_t>( crc >> 8 ) );
   return base32Of( bytes );
}

// What stands between prefix and check sum; absent where the text is nothing of that kind.
std::optional<Bytes> decoded( std::string_view text, std::span<uint8_t const> prefix, std::size_t rawBytes ) {
   auto bytes = fromBase32( text );
   if( !bytes || bytes->size() != prefix.size() + rawBytes + crcBytes ) return std::nullopt;
   auto const crc = static_cast<uint16_t>( ( *bytes )[bytes->size() - 2] | bytes->back() << 8 );
   bytes->resize( bytes->size() - crcBytes );
   if( crc != crcOf( *bytes ) || !std::equal( prefix.begin(), prefix.end(), bytes->begin() ) ) return std::nullopt;
   bytes->erase( bytes->begin(), bytes->begin() + static_cast<std::ptrdiff_t>( prefix.size() ) );
   return bytes;
}

}  // namespace

NKey::NKey( Raw const & seed )
   : seed_( seed ),
     key_( EVP_PKEY_new_raw_private_key( EVP_PKEY_ED25519, nullptr, seed.data(), seed.size() ), EVP_PKEY_free ) {
   if( !key_ ) throw KeyFault( "the cryptographic library does not take an Ed25519 key" );
}

NKey NKey::made() {
   Raw seed;
   if( RAND_priv_bytes( seed.data(), seed.size() ) != 1 ) throw KeyFault( "there is no randomness for a new key" );
   return NKey( seed );
}

NKey NKey::fromSeed( std::string_view text ) {
   auto const raw = decoded( text, seedOfUser, rawBytes );
   if( !raw ) throw KeyFault( "it is not the seed of a user's key, which begins with SU" );
   Raw seed;
   std::ranges::copy( *raw, seed.begin() );
   return NKey( seed );
}

NKey NKey::fromFile( std::string const & fileName ) {
   struct stat file {};
   if( stat( fileName.c_str(), &file ) != 0 ) throw KeyFault( "key file " + fileName + ": " + std::strerror( errno ) );
   if( ( file.st_mode & ( S_IRWXG | S_IRWXO ) ) != 0 ) {
      throw KeyFault( "key file " + fileName + " is open to others than its owner: chmod 600 it, and make a new key" +
                      " if anybody may have read it" );
   }
   std::ifstream in( fileName );
   std::string line;
   if( !std::getline( in, line ) ) throw KeyFault( "key file " + fileName + " cannot be read, or is empty" );
   try {
      return fromSeed( line );
   } catch( KeyFault const & fault ) {
      throw KeyFault( "key file " + fileName + ": " + fault.what() );
   }
}

std::string NKey::seedText() const { return encoded( seedOfUser, seed_ ); }

std::string NKey::publicText() const {
   Raw raw;
   std::size_t bytes = raw.size();
   if( EVP_PKEY_get_raw_public_key( key_.get(), raw.data(), &bytes ) != 1 )
      throw KeyFault( "a key has no public part" );
   return encoded( { &userPrefix, 1 }, raw );
}

std::string NKey::signature( std::string_view nonce ) const {
   std::unique_ptr<EVP_MD_CTX, decltype( &EVP_MD_CTX_free )> const context( EVP_MD_CTX_new(), EVP_MD_CTX_free );
   std::array<uint8_t, 64> raw;
   std::size_t bytes = raw.size();
   if( !context || EVP_DigestSignInit( context.get(), nullptr, nullptr, nullptr, key_.get() ) != 1 ||
       EVP_DigestSign( context.get(), raw.data(), &bytes, reinterpret_cast<uint8_t const *>( nonce.data() ),
                       nonce.size() ) != 1 ) {
      throw KeyFault( "the cryptographic library does not sign" );
   }
   std::array<uint8_t, 4 * ( ( raw.size() + 2 ) / 3 ) + 1> letters;
   int const length = EVP_EncodeBlock( letters.data(), raw.data(), static_cast<int>( bytes ) );
   std::string text( letters.begin(), letters.begin() + length );
   std::ranges::replace( text, '+', '-' );
   std::ranges::replace( text, '/', '_' );
   text.erase( text.find_last_not_of( '=' ) + 1 );
   return text;
}

bool isPublicKey( std::string_view text ) { return decoded( text, { &userPrefix, 1 }, 32 ).has_value(); }

}  // namespace Fleet
