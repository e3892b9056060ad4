// The key by which a box, or the owner of the fleet, is known to the broker: an Ed25519 key in the broker's text form
// (https://docs.nats.io/running-a-nats-service/configuration/securing_nats/auth_intro/nkey_auth).
//
// The seed is the secret; it stays in a file that only its owner can read. The public text stands in the broker's
// configuration, and whoever connects proves by a signature that the seed is his.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct evp_pkey_st;

namespace Fleet {

// A key or its file cannot be used, made or kept. The text says which and why.
class KeyFault : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class NKey {
 public:
   // A new one. Throws KeyFault.
   [[nodiscard]] static NKey made();
   // Throws KeyFault where the text is no user's seed.
   [[nodiscard]] static NKey fromSeed( std::string_view text );
   // Of a file of which the first line is a seed. Throws KeyFault, also where others than its owner can read it.
   [[nodiscard]] static NKey fromFile( std::string const & fileName );

   [[nodiscard]] std::string seedText() const;
   [[nodiscard]] std::string publicText() const;
   // Of what the broker wants signed, in the alphabet that URLs allow, without padding.
   [[nodiscard]] std::string signature( std::string_view nonce ) const;

 private:
   static constexpr std::size_t rawBytes = 32;
   using Raw = std::array<uint8_t, rawBytes>;

   explicit NKey( Raw const & seed );

   Raw seed_;
   std::shared_ptr<evp_pkey_st> key_;
};

// Whether a text is a user's public key, as it stands in the broker's configuration.
[[nodiscard]] bool isPublicKey( std::string_view text );

}  // namespace Fleet
