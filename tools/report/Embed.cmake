# Turns a text file into a C++ header holding it as a char array, so the
# report's page template ships inside the executable.
# cmake -DINPUT=report.html -DOUTPUT=ReportTemplate.h -DNAME=kReportTemplate -P Embed.cmake
file(READ "${INPUT}" bytes HEX)
string(LENGTH "${bytes}" digits)
math(EXPR length "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}.tmp" "// Made from ${INPUT} at build time; do not edit.\n#include <cstddef>\n"
  "inline constexpr char ${NAME}[] = {\n${bytes}0x00};\n"
  "inline constexpr size_t ${NAME}Size = ${length};\n")
file(RENAME "${OUTPUT}.tmp" "${OUTPUT}")
