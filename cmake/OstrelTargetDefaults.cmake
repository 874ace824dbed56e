# Compile settings shared by the project's own targets (not generated code):
# warnings on and fatal, hidden symbols unless exported.
function(ostrel_target_defaults target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
    -Wcast-align -Woverloaded-virtual -Wnull-dereference -Wimplicit-fallthrough
    -Werror)
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
endfunction()
