# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# cmake -D OUTPUT=x.cpp -D HEADER=x.h -D NAMES="a;b" -D FILES="/x/a;/x/b" -P osxEmbed.cmake
# Makes a source that holds files as texts: `namespace command { extern const std::string_view kA; }`.
set(lText "#include \"${HEADER}\"\n\nnamespace command {\n")
foreach(lName lFile IN ZIP_LISTS NAMES FILES)
  file(READ ${lFile} lBytes HEX)
  string(LENGTH "${lBytes}" lDigits)
  math(EXPR lSize "${lDigits} / 2")
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," lBytes "${lBytes}")
  string(REPLACE "'\\x0a'," "'\\x0a',\n" lBytes "${lBytes}")
  string(APPEND lText
    "static constexpr char ${lName}Bytes[] = {${lBytes}};\n"
    "const std::string_view ${lName}(${lName}Bytes, ${lSize});\n")
endforeach()
file(WRITE ${OUTPUT} "${lText}}  // namespace command\n")
