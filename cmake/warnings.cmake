# One warning set for everything that we compile; warnings are errors.
add_library(vqns_warnings INTERFACE)
target_compile_options(vqns_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
