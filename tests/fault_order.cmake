# Read by ctest: the table of faults is counted when every test that it names is over.
file(STRINGS "${page}" rows REGEX "^\\| F[0-9]+ \\|")
string(REGEX MATCHALL "`test_[a-z_0-9]+: [^`]+`" names "${rows}")
list(TRANSFORM names REPLACE "`test_[a-z_0-9]+: ([^`]+)`" "\\1")
list(REMOVE_DUPLICATES names)
set_tests_properties(fault_table PROPERTIES DEPENDS "${names}")
