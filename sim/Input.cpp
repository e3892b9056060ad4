#include "Input.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace {

// To somebody who typed the name alone, and would wait for an answer as it waits for lines.
constexpr char const * hint =
   "maintsim: it wants a scenario, one JSON object a line: maintsim FILE, or maintsim < FILE. A small one:\n"
   "\n"
   "  {\"config\": {\"profiles\": {\"p\": {\"threshold\": \"100kbps\"}}, \"default-profile\": \"p\", \"groups\": "
   "{\"g\": "
   "{\"interfaces\": [\"eth0\"]}}, \"units\": {\"fabric\": {\"groups\": [\"g\"]}}}}\n"
   "  {\"batch\": [{\"link\": {\"eth0\": \"up\"}}, {\"traffic\": {\"eth0\": {\"in\": 0, \"out\": 0}}}, {\"start\": "
   "{}}]}\n"
   "  {\"enter\": \"fabric\"}\n"
   "  {\"advance\": 3600}\n"
   "  {\"ready\": \"fabric\"}\n"
   "\n"
   "More are in examples/scenarios; man maintsim describes each line, maintsim --help the options.\n";

std::string trouble( std::string const & file ) {
   std::error_code error;
   auto const found = std::filesystem::status( file, error );
   if( std::filesystem::is_directory( found ) ) return file + " is a directory, and a scenario is a file";
   if( !std::filesystem::exists( found ) ) return "there is no file " + file;
   return file + " cannot be read: " + std::strerror( errno );
}

}  // namespace

Input::Input( std::string const & file ) {
   if( file.empty() ) {
      if( ::isatty( STDIN_FILENO ) ) {
         std::cerr << hint;
      } else {
         lines_ = &std::cin;
      }
      return;
   }
   file_.open( file );
   // A directory can be opened like a file.
   std::error_code ignored;
   if( file_ && !std::filesystem::is_directory( file, ignored ) ) {
      lines_ = &file_;
   } else {
      std::cerr << "maintsim: " << trouble( file ) << "\n";
   }
}

std::istream * Input::lines() { return lines_; }
