# The clang that kpe is kept clean with; any later one will usually do.
find_program(CMAKE_CXX_COMPILER NAMES clang++-14 clang++ REQUIRED)
