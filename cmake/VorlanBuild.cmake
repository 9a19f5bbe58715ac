# How every target of the project is built: warnings, sanitizers, ccache.

if(PROJECT_IS_TOP_LEVEL)
    find_program(VORLAN_CCACHE ccache)
    if(VORLAN_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
        set(CMAKE_C_COMPILER_LAUNCHER "${VORLAN_CCACHE}")
        set(CMAKE_CXX_COMPILER_LAUNCHER "${VORLAN_CCACHE}")
    endif()
endif()

# Linked privately by every target of ours, so that none of it reaches a user's build. The presets turn
# warnings into errors; without a preset they stay warnings.
add_library(vorlan_build INTERFACE)
target_compile_features(vorlan_build INTERFACE cxx_std_17 c_std_11)
if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(vorlan_build INTERFACE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>)
endif()
if(VORLAN_SANITIZE)
    target_compile_options(vorlan_build INTERFACE
        -fsanitize=${VORLAN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vorlan_build INTERFACE -fsanitize=${VORLAN_SANITIZE})
endif()

# vorlan_program(NAME SOURCE... [LIBRARIES ...]): a program of ours over the library.
function(vorlan_program name)
    cmake_parse_arguments(ARG "" "" "LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE Vorlan::vorlan vorlan_build ${ARG_LIBRARIES})
    set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF)
endfunction()
