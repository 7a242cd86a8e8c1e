// BoundedLines: a text file read one line at a time, never holding more of a line than a bound.
// A longer line is skipped to its end and reported as such, so a file of any size and shape (one
// endless line, as /dev/zero is) is read in constant memory; a read error is told apart from the
// file's end.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace kelvane::tools {

// The longest trace line read (4 MiB): four times the largest reply the library accepts (1 MiB),
// with room for its call around it. A line this long costs the JSON reader some tens of MiB.
inline constexpr std::size_t longestTraceLine = std::size_t{4} << 20;

class BoundedLines {
public:
    enum class Read {
        line,     // line() holds the next line, without its line break
        tooLong,  // the next line is longer than the bound: said as soon as it is known, and the
                  // rest of the line is skipped by the next read; line() is empty
        end,      // no more lines
        failed,   // the file could not be opened or read: problem() says why
    };

    explicit BoundedLines(const std::string& path, std::size_t longest = longestTraceLine);

    Read next();
    // False when the file could not be opened; problem() says why.
    bool isOpen() const { return file_ != nullptr; }
    const std::string& line() const { return line_; }
    // The number of the line last read, from 1.
    std::size_t number() const { return number_; }
    const std::string& problem() const { return problem_; }

private:
    bool fill();
    Read fail(int error);

    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Closer> file_;
    const std::size_t longest_;
    std::vector<char> buffer_;
    std::size_t start_ = 0, end_ = 0;  // the part of buffer_ not yet handed out
    std::string line_;
    std::size_t number_ = 0;
    bool skipping_ = false;  // the rest of a line too long
    std::string problem_;
};

}  // namespace kelvane::tools
