#include "device/simulation/updatefile.h"

#include <charconv>
#include <cstddef>
#include <fstream>
#include <vector>

namespace {

constexpr std::size_t LINE_SIZE = 200;
constexpr std::size_t VERSION_LENGTH = 19;
constexpr int MAX_PARTS = 16;

// The first line, cut at LINE_SIZE: a firmware file is large and may have no line end.
std::string readFirstLine(std::istream& file) {
    std::string line(LINE_SIZE, '\0');
    file.read(line.data(), LINE_SIZE);
    line.resize(static_cast<std::size_t>(file.gcount()));
    return line.substr(0, line.find_first_of("\r\n"));
}

std::vector<std::string> split(const std::string& line) {
    std::vector<std::string> words(1);
    for (const char c : line)
        if (c == ';')
            words.emplace_back();
        else
            words.back() += c;
    return words;
}

int toNumber(const std::string& text) {
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

UpdateFile refused(const char* verdict) {
    UpdateFile file;
    file.verdict = verdict;
    return file;
}

bool isValid(const UpdateFile& file) {
    return !file.product.empty() && !file.version.empty() && file.version.size() <= VERSION_LENGTH &&
           file.parts >= 1 && file.parts <= MAX_PARTS;
}

} // namespace

UpdateFile readUpdateFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        return refused("FileNotFound");
    const std::vector<std::string> words = split(readFirstLine(stream));
    const bool fails = words.size() == 5 && words[4] == "fails";
    if ((words.size() != 4 && !fails) || words[0] != "firmware")
        return refused("FileCorrupt");
    const UpdateFile file{"FileValid", words[1], words[2], toNumber(words[3]), fails};
    return isValid(file) ? file : refused("FileCorrupt");
}
