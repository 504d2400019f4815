add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Werror)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast> $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
# GCC 12 sees overlaps in the concatenation of std::string that cannot be there.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    add_compile_options(-Wno-restrict)
endif()
