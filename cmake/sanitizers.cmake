if(SANITIZE)
    # The run-time is linked statically: the virtual device preloads a library, and the shared run-time insists on
    # being the first library of the process.
    # Without vptr: its check opens a pipe to see whether an object is readable, and takes every object for a broken one
    # while a test has the process run out of descriptors.
    set(SANITIZERS -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
                   -fno-omit-frame-pointer)
    add_compile_options(${SANITIZERS})
    add_link_options($<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>>:-fsanitize=address,undefined>
                     $<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>>:-static-libasan>
                     $<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>>:-static-libubsan>)
endif()
if(FUZZ)
    # Only the fuzz targets link libFuzzer, which has the entry. Without vptr: see above.
    add_compile_options(-fsanitize=address,undefined,fuzzer-no-link -fno-sanitize=vptr -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options($<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>>:-fsanitize=address,undefined>)
endif()
