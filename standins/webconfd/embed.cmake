# Writes the bytes of INPUT as a C++ array named NAME into OUTPUT, so the
# daemon carries its sample phonebook inside the program.
#   cmake -DINPUT=... -DOUTPUT=... -DNAME=... -P embed.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}"
  "// Generated from ${INPUT}; do not edit.\n"
  "#include <cstddef>\n"
  "extern const unsigned char ${NAME}[];\n"
  "extern const std::size_t ${NAME}Size;\n"
  "const unsigned char ${NAME}[] = {\n${bytes}0x00};\n"
  "const std::size_t ${NAME}Size = ${size};\n")
