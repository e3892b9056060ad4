// Whether nobody but root and this process's user can have put a program where it is.
//
// The path is walked as the kernel would walk it, one component after the other. Every directory that is passed on the
// way, those in which a symbolic link lies and those to which it leads, and at last the program, has to belong to root
// or to this process's user and be writable by neither its group nor others: a sticky directory such as /tmp does not
// do. With an access control list the group's bit stands for everybody in the list.
//
// So nobody else can exchange the program between this question and its start, and it is started by its path: a script
// then finds its own name in $0, and no descriptor has to stay open for its interpreter.
#pragma once

#include <string>

namespace Host {

struct Trusted {
   std::string path;       // without symbolic links; empty when there is an objection
   std::string objection;  // "/x/y: writable by others"; empty when it may be run
};

[[nodiscard]] Trusted trustedProgram( std::string const & program );

}  // namespace Host
