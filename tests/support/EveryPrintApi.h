#pragma once
// Output through each way a library may print, so that a redirection is seen to carry them all.
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

namespace tolm::test {

// One line tagged `tag` through printf, iostreams and write(2) to standard output.
inline void printThroughEveryApi(const std::string& tag) {
    std::printf("printf %s\n", tag.c_str());
    std::fflush(stdout);
    std::cout << "cout " << tag << std::endl;
    const std::string raw = "write " + tag + "\n";
    if (::write(STDOUT_FILENO, raw.data(), raw.size()) != ssize_t(raw.size()))
        std::perror("write");
}

// What printThroughEveryApi(tag) prints.
inline std::string printedThroughEveryApi(const std::string& tag) {
    return "printf " + tag + "\ncout " + tag + "\nwrite " + tag + "\n";
}

}  // namespace tolm::test
