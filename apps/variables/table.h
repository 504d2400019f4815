#pragma once

#include <string>
#include <vector>

/// Lines of text in columns. The first line is the heading.
class Table {
public:
    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

    /// Prints the rows to standard output, in colours if it is a terminal. Each column but the last is as
    /// wide as its widest cell, in characters of UTF-8.
    void print() const;

private:
    std::vector<std::vector<std::string>> rows_;
};
