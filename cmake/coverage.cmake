if(COVERAGE)
    # Threads of the tests count, too. The counts are written when a program exits, so a killed one adds none. With the
    # compiler's extensions, it also writes them before exec.
    set(CMAKE_CXX_EXTENSIONS ON)
    add_compile_options(--coverage -fprofile-update=atomic -fprofile-abs-path)
    add_link_options(--coverage)
endif()
