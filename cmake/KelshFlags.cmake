# Interface targets that hold the flags every target of the project is built with.

add_library(kelsh_flags INTERFACE)
target_compile_options(kelsh_flags INTERFACE
    -Wall -Wextra -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual)
# timed_join and the rest of the classic interface are gone from Boost.Thread 4; fix the version.
target_compile_definitions(kelsh_flags INTERFACE BOOST_THREAD_VERSION=2 BOOST_BIND_GLOBAL_PLACEHOLDERS)

if(KELSH_SANITIZE)
    target_compile_options(kelsh_flags INTERFACE
        -fsanitize=${KELSH_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1
        -g1)
    target_link_options(kelsh_flags INTERFACE -fsanitize=${KELSH_SANITIZE})
endif()
if(KELSH_SANITIZE MATCHES "thread")
    # gcc warns that the thread sanitizer does not model fences; the project uses none of its own.
    target_compile_options(kelsh_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
endif()
if(KELSH_FUZZ)
    target_compile_options(kelsh_flags INTERFACE
        -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -O1)
    target_link_options(kelsh_flags INTERFACE -fsanitize=address,undefined)
endif()
