if(SANITIZE)
    # The run-time is linked statically: the virtual device preloads a library, and the shared run-time insists on
    # being the first library of the process.
    set(SANITIZERS -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_compile_options(${SANITIZERS})
    add_link_options($<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>>:-fsanitize=address,undefined>
                     $<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>>:-static-libasan>
                     $<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>>:-static-libubsan>)
endif()
