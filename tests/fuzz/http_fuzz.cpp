// The API under libFuzzer: no bytes that a client sends may end the process.
//
//    build/fuzz/fuzz/http_fuzz -max_len=4096 -dict=tests/fuzz/http.dict WORK_DIR tests/fuzz/corpus/http
#include "HttpAnswers.h"

extern "C" int LLVMFuzzerTestOneInput( unsigned char const * bytes, std::size_t size ) {
   // Asserts what must hold.
   static_cast<void>( Host::apiAnswersTo( { reinterpret_cast<char const *>( bytes ), size } ) );
   return 0;
}
