# A throwaway PostgreSQL server for one ctest run: `pg_server_start` makes and starts it in
# <build dir>/pg-server before the first test that needs it, `pg_server_stop` stops it and
# removes the directory after the last one, whether the tests passed or not. A test that
# needs the server takes BASICS_PG_TEST_PROPERTIES: it then runs only after a successful start
# (a failed start leaves it "Not Run", which ctest counts as a failure) and finds the
# connection string in the environment variable BASICS_TEST_PG.
set(BASICS_PG_SERVER_DIR ${CMAKE_CURRENT_BINARY_DIR}/pg-server)
set(BASICS_PG_SERVER_SCRIPT ${CMAKE_CURRENT_SOURCE_DIR}/tests/pg/pg_server.sh)
set(BASICS_TEST_PG_CONNINFO "host=${BASICS_PG_SERVER_DIR} port=5432 user=postgres dbname=postgres")

add_test(NAME pg_server_start COMMAND bash ${BASICS_PG_SERVER_SCRIPT} start ${BASICS_PG_SERVER_DIR})
add_test(NAME pg_server_stop COMMAND bash ${BASICS_PG_SERVER_SCRIPT} stop ${BASICS_PG_SERVER_DIR})
set_tests_properties(pg_server_start PROPERTIES FIXTURES_SETUP pg TIMEOUT 120)
set_tests_properties(pg_server_stop PROPERTIES FIXTURES_CLEANUP pg TIMEOUT 120)

set(BASICS_PG_TEST_PROPERTIES FIXTURES_REQUIRED pg
    ENVIRONMENT "BASICS_TEST_PG=${BASICS_TEST_PG_CONNINFO}")

# The host program's demo on the server against its demo on a directory.
if(TARGET basics_host)
  add_test(NAME server_demo COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/tests/pg/server_demo_test.sh
                                    $<TARGET_FILE:basics_host>)
  set_tests_properties(server_demo PROPERTIES ${BASICS_PG_TEST_PROPERTIES} TIMEOUT 300)
endif()
