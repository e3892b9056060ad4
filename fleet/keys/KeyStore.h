// The keys of a fleet, in a directory of whoever runs it, and what each of them may do in the broker.
//
//    owner.nk, BOX.nk      the seeds, 0600: each goes to where it is used, and need not stay here
//    owner.pub, BOX.pub    the public parts; who has one here gets in
//    authorization.conf    made of those; nats-server.conf includes it
//
// A box may read what is wanted of it and write its own status; the owner may write what is wanted of all and read all
// statuses. Nobody may do anything else, and nobody gets in without a key. Boxes are in an account of their own, in
// which there is no bucket. The broker knows of a change when it has read its configuration again, and then ends the
// connections of keys that are gone.
#pragma once

#include <string>
#include <vector>

#include "keys/NKey.h"

namespace Fleet {

class KeyStore {
 public:
   // Of a directory that init() has made, or will.
   explicit KeyStore( std::string directory ) : directory_( std::move( directory ) ) {}

   struct Entry {
      std::string name;
      std::string publicKey;
   };

   // All throw KeyFault; what was written until then stays. An owner's key that is there already is an error.
   void init();
   // Of a box that has a key already, or cannot be called so, is an error, and then none of them is added.
   void add( std::vector<std::string> const & boxes );
   // Where one of them has no key none is revoked. Their seeds go, too, where they still are here.
   void revoke( std::vector<std::string> const & boxes );
   // By name, but for the owner's, which is the first.
   [[nodiscard]] std::vector<Entry> entries() const;

   [[nodiscard]] std::string authorizationFile() const { return path( "authorization.conf" ); }
   [[nodiscard]] std::string seedFile( std::string const & name ) const { return path( name + ".nk" ); }

 private:
   [[nodiscard]] std::string path( std::string const & file ) const { return directory_ + "/" + file; }
   [[nodiscard]] bool has( std::string const & name ) const;
   void make( std::string const & name );
   void writeAuthorization() const;

   std::string directory_;
};

struct KeysOptions {
   enum class Verb : uint8_t { init, add, revoke, list };

   Verb verb = Verb::list;
   std::string directory;
   std::vector<std::string> boxes;  // of add and revoke
};

// maintfleet keys; what has been done, and what is to be done now, on standard output. The exit status: 0 done, 1
// failed.
int runKeys( KeysOptions const & options );

}  // namespace Fleet
