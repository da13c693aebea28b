# Writes a file's bytes as a C++ array, run at build time:
#   cmake -DINPUT=photo.png -DOUTPUT=Photo.cpp -DHEADER=Photo.h -DNAMESPACE=ns
#         -DSYMBOL=kPhoto -P EmbedFile.cmake
# defines NAMESPACE::SYMBOL[] and NAMESPACE::SYMBOLSize, declared in HEADER.

foreach(name INPUT OUTPUT HEADER NAMESPACE SYMBOL)
  if(NOT DEFINED ${name})
    message(FATAL_ERROR "EmbedFile.cmake needs -D${name}=...")
  endif()
endforeach()

file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" length)
# Sixteen bytes a line.
set(lines "")
set(offset 0)
while(offset LESS length)
  string(SUBSTRING "${hex}" ${offset} 32 line)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1, " line "${line}")
  string(STRIP "${line}" line)
  string(APPEND lines "    ${line}\n")
  math(EXPR offset "${offset} + 32")
endwhile()

get_filename_component(source "${INPUT}" NAME)
get_filename_component(header "${HEADER}" NAME)
file(WRITE "${OUTPUT}"
  "// Generated from ${source} by EmbedFile.cmake.\n"
  "\n"
  "#include \"${header}\"\n"
  "\n"
  "namespace ${NAMESPACE}\n"
  "{\n"
  "\n"
  "const unsigned char ${SYMBOL}[] = {\n"
  "${lines}"
  "};\n"
  "const unsigned long ${SYMBOL}Size = sizeof(${SYMBOL});\n"
  "\n"
  "} // namespace ${NAMESPACE}\n")
