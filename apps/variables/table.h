#pragma once

#include <string>
#include <vector>

/// Lines of text in columns.
class Table {
public:
    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

    /// Prints the rows to standard output. Each column but the last is as wide as its widest cell, in
    /// characters of UTF-8.
    void print() const;

private:
    std::vector<std::vector<std::string>> rows_;
};
