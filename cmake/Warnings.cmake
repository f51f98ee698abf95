# vesk_warnings: the warnings that our own code is free of. src, tests and bench link it for every
# target below them; generated protocol code does not.

add_library(vesk_warnings INTERFACE)
target_compile_options(vesk_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
)
