# One line per benchmark program: gw_add_bench(<name> DEPS <libraries>)
gw_add_bench(text_bench DEPS gw_platform)
gw_add_bench(c_string_bench DEPS gw_text)
gw_add_bench(extract_bench DEPS gw_extraction gw_meta gw_platform)
