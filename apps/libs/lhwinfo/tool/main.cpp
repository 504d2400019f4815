#include "apps/libs/lhwinfo/tool/commands.h"

#include <iostream>
#include <vector>

int main(int argc, char** argv) {
    try {
        const std::vector<std::string> words(argv + 1, argv + argc);
        runCommand(words);
        std::cout.flush();
        if (!std::cout)
            throw std::runtime_error("Standard output cannot be written.");
        return 0;
    } catch (const UsageError& error) {
        std::cerr << "hwinfo: " << error.what() << "\n" << USAGE;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "hwinfo: " << error.what() << "\n";
        return 1;
    }
}
