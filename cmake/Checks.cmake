# Targets that check the sources without building them.
#   check-format   every source is as .clang-format writes it
#   check-tidy     clang-tidy finds nothing (needs this build's compile_commands.json)
find_program(CLANG_FORMAT clang-format)
find_program(RUN_CLANG_TIDY NAMES run-clang-tidy run-clang-tidy-14)

file(GLOB_RECURSE QX_SOURCES CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/src/*.cpp ${PROJECT_SOURCE_DIR}/src/*.h
    ${PROJECT_SOURCE_DIR}/sim/*.cpp ${PROJECT_SOURCE_DIR}/sim/*.h
    ${PROJECT_SOURCE_DIR}/tools/*.cpp ${PROJECT_SOURCE_DIR}/tools/*.h
    ${PROJECT_SOURCE_DIR}/tests/*.cpp ${PROJECT_SOURCE_DIR}/tests/*.h
    ${PROJECT_SOURCE_DIR}/bench/*.cpp
    ${PROJECT_SOURCE_DIR}/fuzz/*.cpp ${PROJECT_SOURCE_DIR}/fuzz/*.h)

if(CLANG_FORMAT)
    add_custom_target(check-format
        COMMAND ${CLANG_FORMAT} --dry-run --Werror ${QX_SOURCES} VERBATIM)
    add_custom_target(format COMMAND ${CLANG_FORMAT} -i ${QX_SOURCES} VERBATIM)
endif()
if(RUN_CLANG_TIDY)
    add_custom_target(check-tidy
        COMMAND ${RUN_CLANG_TIDY} -quiet -p ${PROJECT_BINARY_DIR}
                "${PROJECT_SOURCE_DIR}/(src|sim|tools|tests|bench|fuzz)/.*" VERBATIM)
endif()
