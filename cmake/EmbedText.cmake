# SPDX-License-Identifier: MIT
# Writes a C++ source with functions that return the content of text files. Run as a script:
#
#   cmake -DOUTPUT=X.cpp -DHEADER=X.h "-DFUNCTIONS=one two" "-Done=FILE..." "-Dtwo=FILE..." -P EmbedText.cmake
#
# The content of several files stands one after the other. As bytes and not as string literals, which MSVC limits to
# 16 KB. Lists are separated by blanks here, because semicolons do not pass a command line well, so the paths must have
# none: they are relative to the working folder.
set(source "#include \"${HEADER}\"\n\nnamespace tonwerk::app\n{\n")
separate_arguments(FUNCTIONS)
foreach(function IN LISTS FUNCTIONS)
    set(bytes "")
    separate_arguments(files UNIX_COMMAND "${${function}}")
    foreach(file IN LISTS files)
        file(READ "${file}" hex HEX)
        string(APPEND bytes "${hex}")
    endforeach()
    string(REGEX REPLACE "(................................)" "\\1\n    " bytes "${bytes}")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1', " bytes "${bytes}")
    string(APPEND source "
namespace
{
constexpr char ${function}Bytes[] = {
    ${bytes}
};
} // namespace

std::string_view ${function}()
{
    return {${function}Bytes, sizeof ${function}Bytes};
}
")
endforeach()
file(WRITE "${OUTPUT}" "${source}\n} // namespace tonwerk::app\n")
