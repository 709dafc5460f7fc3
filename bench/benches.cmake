# One line per benchmark program: gw_add_bench(<name> DEPS <libraries>)
gw_add_bench(text_bench DEPS gw_platform)
gw_add_bench(c_string_bench DEPS gw_text)
gw_add_bench(extract_bench DEPS gw_extraction gw_meta gw_platform)
gw_add_bench(filters_bench DEPS gw_filters)
gw_add_bench(targets_bench DEPS gw_extraction gw_targets gw_platform)
# The MariaDB benchmark starts its own private server, as the tests do.
target_sources(targets_bench PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/mariadb_server.cpp)
target_include_directories(targets_bench PRIVATE ${PROJECT_SOURCE_DIR}/tests)
# The web client against a loopback server (cpp-httplib in a child process), beside wrk.
gw_add_bench(http_bench DEPS gw_web gw_platform PkgConfig::HTTPLIB)
# The link scan and the document tree on generated pages (links_bench.cpp says what each shows).
gw_add_bench(links_bench DEPS gw_acquire gw_platform PkgConfig::PCRE2)
gw_add_bench(import_bench DEPS gw_engine gw_infra)
# The crawl queue: one round's cost against the size of the run (crawl_queue_bench.cpp).
gw_add_bench(crawl_queue_bench DEPS gw_rules gw_platform)
