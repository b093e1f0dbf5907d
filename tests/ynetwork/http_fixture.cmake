# The servers of the HTTP tests: a ctest fixture starts a private nginx and the Python peer before
# the first test that needs them and stops them after the last, also when tests fail. Their state
# lives in this build's tree, so two builds can run their fixtures at once.
set(YOVO_HTTP_FIXTURE_DIR ${PROJECT_BINARY_DIR}/tests/http_fixture)
set(YOVO_HTTP_FIXTURE_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/http_fixture.py)
set(YOVO_HTTP_TESTS_DIR ${CMAKE_CURRENT_LIST_DIR})
find_package(Python3 REQUIRED COMPONENTS Interpreter)

# The variables above are needed in each folder that includes this file; the rest only once.
include_guard(GLOBAL)

add_test(NAME http_servers_start
         COMMAND ${Python3_EXECUTABLE} ${YOVO_HTTP_FIXTURE_SCRIPT} start ${YOVO_HTTP_FIXTURE_DIR})
set_tests_properties(http_servers_start PROPERTIES FIXTURES_SETUP yovo_http_servers TIMEOUT 120)
add_test(NAME http_servers_stop
         COMMAND ${Python3_EXECUTABLE} ${YOVO_HTTP_FIXTURE_SCRIPT} stop ${YOVO_HTTP_FIXTURE_DIR})
set_tests_properties(http_servers_stop PROPERTIES FIXTURES_CLEANUP yovo_http_servers TIMEOUT 60)

# yovo_add_http_test(name SOURCES ... [LABELS ...] [LIBS ...] [TIMEOUT s]): a test program whose
# tests all need the fixture's servers.
function(yovo_add_http_test name)
    yovo_add_test(${name} ${ARGN})
    target_compile_definitions(${name} PRIVATE YOVO_HTTP_FIXTURE_DIR="${YOVO_HTTP_FIXTURE_DIR}")
    target_include_directories(${name} PRIVATE ${YOVO_HTTP_TESTS_DIR})
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${name}_fixture.cmake)
    file(WRITE ${script}
         "foreach(test IN LISTS ${name}_TESTS)\n"
         "    set_tests_properties(\"\${test}\" PROPERTIES FIXTURES_REQUIRED yovo_http_servers)\n"
         "endforeach()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
