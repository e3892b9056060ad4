// The text that a client and the broker speak, as far as a box needs it
// (https://docs.nats.io/reference/reference-protocols/nats-protocol). No network: bytes come in, messages come out.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Fleet {

// What came is not of the protocol.
class ProtocolFault : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class ProtocolReader {
 public:
   struct Message {
      enum class Kind : uint8_t { info, ping, pong, letter, error };

      Kind kind = Kind::ping;
      std::string text;     // of info its JSON, of an error the sentence, of a letter its body
      std::string subject;  // of a letter
      std::string headers;  // of a letter that has any; lines
   };

   // What is whole now; the rest waits for more bytes. Throws ProtocolFault.
   [[nodiscard]] std::vector<Message> take( std::string_view bytes );

 private:
   [[nodiscard]] bool next( std::vector<Message> & into );
   [[nodiscard]] bool letter( std::string_view line, std::size_t lineEnd, std::vector<Message> & into );

   std::string held_;
   std::size_t done_ = 0;  // of held_, within take()
};

// The value of a header of a letter, or empty.
[[nodiscard]] std::string_view headerOf( ProtocolReader::Message const & letter, std::string_view name );

// What a client says.
[[nodiscard]] std::string connectText( std::string const & name, std::string const & publicKey,
                                       std::string const & signature, bool tls );
[[nodiscard]] std::string subscribeText( std::string const & subject, int number );
// `answerTo` empty: no answer is wanted.
[[nodiscard]] std::string publishText( std::string const & subject, std::string const & answerTo,
                                       std::string_view body );

}  // namespace Fleet
