// HTTP/1.1 as the API speaks it: bytes in, status and fields out.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "HttpAnswers.h"
#include "http/RequestReader.h"

namespace Host {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
namespace fs = std::filesystem;

HttpAnswer echo( HttpRequest const & request ) { return { 200, request.method + " " + request.target + ";" }; }

struct Exchange {
   std::string name;
   std::string bytes;
   std::string statuses;
   std::string says = "";  // in the answer
};

std::string times( std::size_t count, std::string const & text ) {
   std::string all;
   while( count-- > 0 ) all += text;
   return all;
}

std::string const get = "GET /a HTTP/1.1\r\nHost: x\r\n";
std::string const post = "POST /a HTTP/1.1\r\nHost: x\r\n";
std::string const chunked = post + "Transfer-Encoding: chunked\r\n\r\n";
std::string const closing = "GET /last HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";

// A head of so many bytes.
std::string headOf( std::size_t bytes ) {
   std::string const rest = "X: \r\n\r\n";
   return get + "X: " + std::string( bytes - get.size() - rest.size(), 'x' ) + "\r\n\r\n";
}

std::string targetOf( std::size_t bytes ) {
   return "GET /" + std::string( bytes - 1, 'a' ) + " HTTP/1.1\r\nHost: x\r\n";
}

std::vector<Exchange> const exchanges = {
   { "anEmptyLineBefore", "\r\n\r\n" + get + "\r\n", "200", "GET /a;" },
   { "nothing", "\r\n", "" },
   { "oneBehindTheOther", get + "\r\n" + post + "Content-Length: 3\r\n\r\nabc" + closing, "200 200 200", "GET /last;" },
   { "closeEndsIt", closing + closing, "200", "Connection: close\r\n" },
   { "keepAlive", get + "\r\n", "200", "Connection: keep-alive\r\n" },
   { "http10Closes", "GET /a HTTP/1.0\r\n\r\n" + closing, "200", "Connection: close\r\n" },
   { "http10KeepsWhereAsked", "GET /a HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n" + closing, "200 200",
     "Connection: keep-alive\r\n" },
   { "laterMinorVersion", "GET /a HTTP/1.7\r\nHost: x\r\n\r\n" + closing, "200 200" },
   { "otherMajorVersion", "GET /a HTTP/2.0\r\nHost: x\r\n\r\n", "505", "HTTP/2.0" },
   { "http2Preface", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", "505" },
   { "http09", "GET /a\r\n", "400" },
   { "noVersion", "GET /a HTTP/1\r\nHost: x\r\n\r\n", "400" },
   { "lowerCaseVersion", "GET /a http/1.1\r\nHost: x\r\n\r\n", "400" },
   { "noHttp", "\x16\x03\x01\x02\n", "400" },
   { "aWordAndNoMore", "hello", "400", "breaks off" },
   { "brokenOffInTheHead", get, "400", "breaks off" },
   { "brokenOffInTheBody", post + "Content-Length: 3\r\n\r\nab", "400", "breaks off" },

   { "headHasNoBody", "HEAD /a HTTP/1.1\r\nHost: x\r\n\r\n", "200", "Content-Length: 7\r\n" },
   { "unknownMethod", "BREW /a HTTP/1.1\r\nHost: x\r\n\r\n" + closing, "501" },
   { "methodsHaveACase", "get /a HTTP/1.1\r\nHost: x\r\n\r\n", "501" },
   { "connect", "CONNECT x:80 HTTP/1.1\r\nHost: x:80\r\n\r\n", "501" },
   { "otherMethodsAreTheHandlers", "DELETE /a HTTP/1.1\r\nHost: x\r\n\r\n", "200", "DELETE /a;" },
   { "endlessMethod", std::string( 9000, 'G' ), "501" },

   { "noHost", "GET /a HTTP/1.1\r\n\r\n", "400", "Host" },
   { "twoHosts", get + "Host: x\r\n\r\n", "400", "Host" },
   { "emptyHost", "GET /a HTTP/1.1\r\nHost:\r\n\r\n", "200" },
   { "hostWithPort", "GET /a HTTP/1.1\r\nHost: [::1]:80\r\n\r\n", "200" },
   { "hostThatIsNone", "GET /a HTTP/1.1\r\nHost: a b\r\n\r\n", "400", "Host" },
   { "hostWithUser", "GET /a HTTP/1.1\r\nHost: u@x\r\n\r\n", "400", "Host" },

   { "absoluteTarget", "GET http://other:1/a%2Fb?c HTTP/1.1\r\nHost: x\r\n\r\n", "200", "GET /a%2Fb?c;" },
   { "absoluteTargetWithoutPath", "GET HTTP://other?c HTTP/1.1\r\nHost: x\r\n\r\n", "200", "GET /?c;" },
   { "absoluteTargetOfAnotherKind", "GET ftp://other/a HTTP/1.1\r\nHost: x\r\n\r\n", "400" },
   { "absoluteTargetWithUser", "GET http://u@other/a HTTP/1.1\r\nHost: x\r\n\r\n", "400" },
   { "absoluteTargetWithoutHost", "GET http:///a HTTP/1.1\r\nHost: x\r\n\r\n", "400" },
   { "asterisk", "OPTIONS * HTTP/1.1\r\nHost: x\r\n\r\n", "200", "OPTIONS *;" },
   { "asteriskForOthers", "GET * HTTP/1.1\r\nHost: x\r\n\r\n", "400" },
   { "fragment", "GET /a#b HTTP/1.1\r\nHost: x\r\n\r\n", "400" },
   { "brokenEncoding", "GET /a%2 HTTP/1.1\r\nHost: x\r\n\r\n", "400" },
   { "relativeTarget", "GET a HTTP/1.1\r\nHost: x\r\n\r\n", "400" },
   { "twoBlanks", "GET  /a HTTP/1.1\r\nHost: x\r\n\r\n", "400" },

   { "bareLineFeeds", "GET /a HTTP/1.1\nHost: x\n\n", "400" },
   { "bareCarriageReturn", get + "X: a\rb\r\n\r\n", "400" },
   { "blankBeforeColon", get + "X : a\r\n\r\n", "400" },
   { "blankBeforeFirstField", "GET /a HTTP/1.1\r\n Host: x\r\n\r\n", "400" },
   { "nulInField", get + "X: a" + std::string( 1, '\0' ) + "\r\n\r\n", "400" },
   { "fieldWithoutName", get + ": a\r\n\r\n", "400" },

   { "aBodyOfAGetIsPassedOver", get + "Content-Length: 5\r\n\r\nGET /" + closing, "200 200", "GET /last;" },
   { "equalLengthsAreOne", post + "Content-Length: 1, 1\r\n\r\na" + closing, "200 200" },
   { "differentLengths", post + "Content-Length: 1\r\nContent-Length: 2\r\n\r\nab" + closing, "400" },
   { "lengthThatIsNone", post + "Content-Length: -1\r\n\r\n", "400" },
   { "lengthBeyondNumbers", post + "Content-Length: 99999999999999999999\r\n\r\n", "400" },
   { "chunks", chunked + "3;x=y\r\nabc\r\nA\r\n0123456789\r\n0\r\nHost: y\r\n\r\n" + closing, "200 200", "GET /last;" },
   { "chunkSizeThatIsNone", chunked + "x\r\nabc\r\n", "400" },
   { "chunkThatIsLonger", chunked + "2\r\nabc\r\n0\r\n\r\n", "400" },
   { "endlessChunkSize", chunked + std::string( 9000, '1' ), "400" },
   { "lengthAndChunks", post + "Content-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + closing, "400" },
   { "chunksAndLength", post + "Transfer-Encoding: chunked\r\nContent-Length: 3\r\n\r\n0\r\n\r\n" + closing, "400" },
   { "chunksTwice", post + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + closing,
     "400" },
   { "chunkedIsNotLast", post + "Transfer-Encoding: chunked, gzip\r\n\r\n" + closing, "400" },
   { "codingThatIsNotKnown", post + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n" + closing, "501" },
   { "http10KnowsNoChunks", "POST /a HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "400" },

   { "leaveWithoutABody", post + "Expect: 100-continue\r\n\r\n", "200" },
   { "noLeaveForTooMuch", post + "Expect: 100-continue\r\nContent-Length: 70000\r\n\r\n", "413" },
   { "http10AsksForNoLeave", "POST /a HTTP/1.0\r\nContent-Length: 1\r\nExpect: 100-continue\r\n\r\na", "200" },
   { "anotherExpectation", post + "Expect: wonders\r\n\r\n", "417" },

   { "fullHead", headOf( RequestReader::headMax ) + closing, "200 200" },
   { "overfullHead", headOf( RequestReader::headMax + 1 ), "431", "8192 bytes" },
   { "manyFields", get + times( 3000, "a:\r\n" ) + "\r\n", "431" },
   { "targetOf8000", targetOf( 8000 ) + "\r\n", "200" },
   { "targetTooLong", targetOf( 8300 ) + "\r\n", "414", "8192 bytes" },
   { "fullBody", post + "Content-Length: 65536\r\n\r\n" + std::string( 65536, 'x' ) + closing, "200 200" },
   { "overfullBody", post + "Content-Length: 65537\r\n\r\n" + std::string( 65537, 'x' ), "413", "65536 bytes" },
   { "fullBodyInChunks", chunked + times( 16, "1000\r\n" + std::string( 4096, 'x' ) + "\r\n" ) + "0\r\n\r\n", "200" },
   { "overfullBodyInChunks", chunked + times( 17, "1000\r\n" + std::string( 4096, 'x' ) + "\r\n" ), "413" },
};

class HttpExchange : public ::testing::TestWithParam<Exchange> {};

TEST_P( HttpExchange, isAnsweredAsTheStandardSays ) {
   auto const & [name, bytes, expected, says] = GetParam();
   // It must not matter how the bytes are cut.
   for( std::size_t const pieceSize : { 100'000u, 100u, 7u, 1u } ) {
      std::string const answers = answersTo( bytes, pieceSize, echo );
      EXPECT_EQ( statuses( answers ), expected ) << pieceSize << answers;
      EXPECT_THAT( answers, HasSubstr( says ) ) << pieceSize;
   }
}

INSTANTIATE_TEST_SUITE_P( All, HttpExchange, ::testing::ValuesIn( exchanges ),
                          []( auto const & tested ) { return tested.param.name; } );

TEST( HttpAnswers, leaveToSendABodyIsGivenUnlessItIsOnItsWay ) {
   std::string const head = post + "Content-Length: 3\r\nExpect: 100-Continue\r\n\r\n";
   EXPECT_EQ( statuses( answersTo( head + "abc" + closing, head.size(), echo ) ), "100 200 200" );
   EXPECT_EQ( statuses( answersTo( head + "abc" + closing, head.size() + 1, echo ) ), "200 200" );
}

TEST( HttpAnswers, saysWhatAClientMustKnow ) {
   EXPECT_EQ( answersTo( get + "\r\n", 1000, echo ),
              "HTTP/1.1 200 OK\r\nDate: Thu, 01 Jan 1970 00:00:00 GMT\r\nContent-Type: application/json\r\n"
              "Content-Length: 7\r\nConnection: keep-alive\r\n\r\nGET /a;" );
   auto const notAllowed = []( HttpRequest const & ) {
      return HttpAnswer{ .status = 405, .body = "", .allow = "GET, HEAD" };
   };
   std::string const answer = answersTo( post + "\r\n", 1000, notAllowed );
   EXPECT_THAT( answer, HasSubstr( "HTTP/1.1 405 Method Not Allowed\r\n" ) );
   EXPECT_THAT( answer, HasSubstr( "\r\nAllow: GET, HEAD\r\n" ) );
   EXPECT_THAT( answer, HasSubstr( "\r\nContent-Length: 0\r\n" ) );
   EXPECT_THAT( answersTo( "HEAD /a HTTP/1.1\r\nHost: x\r\n\r\n", 1000, echo ), Not( HasSubstr( ";" ) ) );
   EXPECT_THAT( answersTo( "hello\r\n", 1000, echo ), HasSubstr( "\r\n\r\n{\"error\": \"not HTTP/1.1: " ) );
}

// The fuzzer's inputs, named after the answers that they get.
TEST( HttpAnswers, ofTheApiAreAsTheCorpusSays ) {
   int inputs = 0;
   for( auto const & entry : fs::directory_iterator( fs::path( RATEMON_SOURCE_DIR ) / "tests/fuzz/corpus/http" ) ) {
      std::ifstream in( entry.path(), std::ios::binary );
      std::string const name = entry.path().stem();
      std::string const answers = apiAnswersTo( std::string{ std::istreambuf_iterator<char>( in ), {} } );
      std::string expected = statuses( answers );
      std::replace( expected.begin(), expected.end(), ' ', '-' );
      EXPECT_THAT( name, StartsWith( expected + "-" ) ) << answers;
      ++inputs;
   }
   EXPECT_GE( inputs, 12 );
}

}  // namespace
}  // namespace Host
