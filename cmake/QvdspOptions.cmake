# Compiler settings shared by every target of the project.
add_library(qvdsp_options INTERFACE)
target_compile_options(qvdsp_options INTERFACE
  -Wall -Wextra -Wno-unused-parameter
  # Arithmetic must run in the order written: tests compare exact values.
  -ffp-contract=off)
if(QVDSP_SANITIZE)
  target_compile_options(qvdsp_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(qvdsp_options INTERFACE -fsanitize=address,undefined)
endif()
