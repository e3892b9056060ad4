// The lines that maintsim reads, and what is said to somebody who gave it none.
#pragma once

#include <fstream>
#include <istream>
#include <string>

// Standard input where no file is named. Says on standard error what stands against it, and is none then.
class Input {
 public:
   explicit Input( std::string const & file );
   // Null where there is nothing to read.
   [[nodiscard]] std::istream * lines();

 private:
   std::ifstream file_;
   std::istream * lines_ = nullptr;
};
