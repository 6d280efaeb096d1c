// Files and child processes for the tests that drive vaitool and the reference runtime from outside.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

struct ShellRun {
    int status;  // -1: did not exit
    std::string out;
};

// Runs a shell command line: its exit status and what it wrote to the stream its redirections leave.
inline ShellRun Shell(const std::string& command) {
    FILE* p = popen(command.c_str(), "r");
    std::string out;
    for (int ch; (ch = std::fgetc(p)) != EOF;) out += static_cast<char>(ch);
    const int st = pclose(p);
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, out};
}
