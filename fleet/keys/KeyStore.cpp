#include "keys/KeyStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "keys/Subjects.h"

namespace Fleet {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view publicEnding = ".pub";
constexpr mode_t secretMode = 0600;
constexpr mode_t publicMode = 0644;

[[noreturn]] void failOn( std::string const & file, char const * what ) {
   throw KeyFault( file + " cannot be " + what + ": " + std::strerror( errno ) );
}

bool writtenWhole( int fd, std::string_view text ) {
   while( !text.empty() ) {
      ssize_t const bytes = write( fd, text.data(), text.size() );
      if( bytes < 0 && errno == EINTR ) continue;
      if( bytes <= 0 ) return false;
      text.remove_prefix( static_cast<std::size_t>( bytes ) );
   }
   return true;
}

// All of it or nothing: who reads the file sees the old text until the new one is there to stay.
void writeFile( std::string const & file, std::string_view text, mode_t mode ) {
   std::string const made = file + ".new";
   unlink( made.c_str() );
   int const fd = open( made.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode );
   if( fd < 0 ) failOn( made, "made" );
   bool const written = writtenWhole( fd, text ) && fchmod( fd, mode ) == 0 && fsync( fd ) == 0;
   if( close( fd ) != 0 || !written ) failOn( made, "written" );
   if( rename( made.c_str(), file.c_str() ) != 0 ) failOn( file, "put in its place" );
}

std::string lineOf( std::string const & file ) {
   std::ifstream in( file );
   std::string line;
   if( !std::getline( in, line ) ) throw KeyFault( file + " cannot be read, or is empty" );
   return line;
}

// As in an inventory: it is part of a subject.
bool canBeBox( std::string const & name ) {
   auto const fits = []( char c ) { return std::isalnum( static_cast<unsigned char>( c ) ) || c == '-' || c == '_'; };
   return !name.empty() && name != ownerName && std::ranges::all_of( name, fits );
}

std::string listOf( std::vector<std::string> const & subjects ) {
   std::string text;
   for( std::string const & subject : subjects ) text += ( text.empty() ? "\"" : ", \"" ) + subject + '"';
   return "[" + text + "]";
}

// What a key may do.
std::string userOf( KeyStore::Entry const & entry ) {
   std::vector<std::string> publishes;
   std::vector<std::string> hears{ readInboxOf( entry.name ) };
   if( entry.name == ownerName ) {
      std::string const owners = subjectOf( std::string( ownerKey ) );
      publishes = { subjectOf( desiredKey( "*" ) ), owners, readSubjectOf( ">" ), std::string( makeBucketSubject ) };
      hears.insert( hears.end(), { subjectOf( statusKey( "*" ) ), owners, std::string( bucketInbox ) } );
   } else {
      publishes = { subjectOf( statusKey( entry.name ) ), readSubjectOf( desiredKey( entry.name ) ) };
      hears.push_back( subjectOf( desiredKey( entry.name ) ) );
   }
   return "         # " + entry.name + "\n         { nkey: " + entry.publicKey +
          ", permissions: {\n         publish: { allow: " + listOf( publishes ) +
          " }\n         subscribe: { allow: " + listOf( hears ) + " } } }\n";
}

// The broker does not look at where a reader wants the answer, and sends it there with rights of its own. So boxes are
// in an account of their own, where the bucket is not: what they could reach like that are each other's subjects, with
// a letter that is not for them.
std::string accountsOf( std::string const & owner, std::string const & boxes ) {
   std::string const reads = '"' + readSubjectOf( desiredKey( "*" ) ) + '"';
   std::string const orders = '"' + subjectOf( desiredKey( "*" ) ) + '"';
   std::string const statuses = '"' + subjectOf( statusKey( "*" ) ) + '"';
   return "# Made by maintfleet keys, which writes it anew with each key that is added or revoked.\n"
          "authorization {\n   timeout: 20\n}\naccounts {\n   FLEET {\n      jetstream: enabled\n"
          "      exports: [ { service: " +
          reads + ", accounts: [BOXES] }, { stream: " + orders + ", accounts: [BOXES] } ]\n" +
          "      imports: [ { stream: { account: BOXES, subject: " + statuses + " } } ]\n      users: [\n" + owner +
          "      ]\n   }\n   BOXES {\n      exports: [ { stream: " + statuses + ", accounts: [FLEET] } ]\n" +
          "      imports: [ { service: { account: FLEET, subject: " + reads +
          " } }, { stream: { account: FLEET, subject: " + orders + " } } ]\n      users: [\n" + boxes +
          "      ]\n   }\n}\n";
}

}  // namespace

bool KeyStore::has( std::string const & name ) const {
   return fs::exists( path( name + std::string( publicEnding ) ) );
}

void KeyStore::make( std::string const & name ) {
   NKey const key = NKey::made();
   // The secret first: a public part without one would stand for a key that nobody has.
   writeFile( seedFile( name ), key.seedText() + "\n", secretMode );
   writeFile( path( name + std::string( publicEnding ) ), key.publicText() + "\n", publicMode );
}

void KeyStore::init() {
   std::error_code error;
   // Open to the broker, which reads one file of it; the seeds are closed one by one.
   fs::create_directories( directory_, error );
   if( error ) throw KeyFault( directory_ + " cannot be made: " + error.message() );
   if( has( std::string( ownerName ) ) ) throw KeyFault( directory_ + " has an owner's key already" );
   make( std::string( ownerName ) );
   writeAuthorization();
}

void KeyStore::add( std::vector<std::string> const & boxes ) {
   if( !has( std::string( ownerName ) ) ) throw KeyFault( directory_ + " has no owner's key: make one with init" );
   for( std::string const & box : boxes ) {
      if( !canBeBox( box ) ) {
         throw KeyFault( "a box cannot be called \"" + box + "\": letters, digits, '-' and '_', and not \"" +
                         std::string( ownerName ) + "\"" );
      }
      if( has( box ) ) throw KeyFault( "box " + box + " has a key already: revoke that first" );
   }
   for( std::string const & box : boxes ) make( box );
   writeAuthorization();
}

void KeyStore::revoke( std::vector<std::string> const & boxes ) {
   for( std::string const & box : boxes ) {
      if( !canBeBox( box ) || !has( box ) ) throw KeyFault( "box \"" + box + "\" has no key; nothing is revoked" );
   }
   for( std::string const & box : boxes ) {
      for( std::string const & file : { path( box + std::string( publicEnding ) ), seedFile( box ) } ) {
         if( unlink( file.c_str() ) != 0 && errno != ENOENT ) failOn( file, "removed" );
      }
   }
   writeAuthorization();
}

std::vector<KeyStore::Entry> KeyStore::entries() const {
   std::vector<Entry> found;
   std::error_code error;
   for( fs::directory_iterator file( directory_, error ); !error && file != fs::directory_iterator();
        file.increment( error ) ) {
      if( file->path().extension() != publicEnding ) continue;
      Entry const entry{ file->path().stem().string(), lineOf( file->path().string() ) };
      if( !isPublicKey( entry.publicKey ) )
         throw KeyFault( file->path().string() + " is not the public part of a key" );
      found.push_back( entry );
   }
   if( error ) throw KeyFault( directory_ + " cannot be read: " + error.message() );
   std::ranges::sort( found, {},
                      []( Entry const & entry ) { return std::pair( entry.name != ownerName, entry.name ); } );
   return found;
}

void KeyStore::writeAuthorization() const {
   std::string owner;
   std::string boxes;
   for( Entry const & entry : entries() ) ( entry.name == ownerName ? owner : boxes ) += userOf( entry );
   writeFile( authorizationFile(), accountsOf( owner, boxes ), publicMode );
}

}  // namespace Fleet
