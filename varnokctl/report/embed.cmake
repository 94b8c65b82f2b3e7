# Makes the page's templates, with their style and script, part of the program. The page names the hashes of the two.
set(report_folder ${CMAKE_CURRENT_LIST_DIR})

# base64_of(HEX RESULT): of a hash's 32 bytes, which CMake gives as hexadecimal digits.
function(base64_of hex result)
    set(digits "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/")
    set(text "")
    string(APPEND hex "00") # to whole groups of three bytes
    foreach(at RANGE 0 60 6)
        string(SUBSTRING ${hex} ${at} 6 group)
        foreach(shift 18 12 6 0)
            math(EXPR digit "0x${group} >> ${shift} & 63")
            string(SUBSTRING ${digits} ${digit} 1 digit)
            string(APPEND text ${digit})
        endforeach()
    endforeach()
    string(REGEX REPLACE "A$" "=" text ${text}) # the byte that was added
    set(${result} ${text} PARENT_SCOPE)
endfunction()

# read_part(FILE RESULT): what the page has of it, and RESULT_HASH as its policy has it.
function(read_part file result)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${report_folder}/${file})
    file(READ ${report_folder}/${file} text)
    string(SHA256 hash "${text}")
    base64_of(${hash} hash)
    set(${result} "${text}" PARENT_SCOPE)
    set(${result}_HASH "sha256-${hash}" PARENT_SCOPE)
endfunction()

read_part(report.css STYLE)
read_part(report.js SCRIPT)
set(TEMPLATES "")
foreach(name page_begin finding_rule hosts_table host_begin picture host_tables device_group host_end page_end)
    read_part(${name}.mustache template)
    string(CONFIGURE "${template}" template @ONLY)
    string(APPEND TEMPLATES "const char *const ${name} = R\"~~~(${template})~~~\";\n")
endforeach()
configure_file(${report_folder}/templates.cpp.in ${CMAKE_CURRENT_BINARY_DIR}/report_templates.cpp @ONLY)
