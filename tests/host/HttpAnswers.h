// What a connection would answer to bytes, without a socket.
#pragma once

#include <string>
#include <string_view>

#include "http/Http.h"

namespace Host {

// All that is written in answer to a client who sends `bytes`, `pieceSize` at a time, and then no more. A request with
// a body is given leave to send it where it asks for that. Asserts what must hold for any input.
[[nodiscard]] std::string answersTo( std::string_view bytes, std::size_t pieceSize, HttpHandler const & handler );

// What the API would answer, in a service of its own; for the fuzzer, and for the test that runs the fuzzer's corpus.
// Throws where what the API calls JSON is none.
[[nodiscard]] std::string apiAnswersTo( std::string_view bytes );

// "200 404" of two answers.
[[nodiscard]] std::string statuses( std::string const & answers );

}  // namespace Host
