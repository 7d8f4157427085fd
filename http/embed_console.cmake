# Writes OUTPUT, the source file that has the page INPUT in it: its text, the hashes of its <style>
# and <script> for a Content-Security-Policy, and its entity tag.
file(READ "${INPUT}" page)

# What lies between <NAME> and </NAME>.
function(between name result)
  string(FIND "${page}" "<${name}>" begin)
  string(FIND "${page}" "<${name}>" last REVERSE)
  string(FIND "${page}" "</${name}>" end)
  if(begin EQUAL -1 OR NOT begin EQUAL last OR NOT begin LESS end)
    message(FATAL_ERROR "${INPUT}: one <${name}> is expected")
  endif()
  string(LENGTH "<${name}>" length)
  math(EXPR begin "${begin} + ${length}")
  math(EXPR length "${end} - ${begin}")
  string(SUBSTRING "${page}" ${begin} ${length} text)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# The SHA-256 of `text` in base 64: three hexadecimal digits are two of those, and the 64 of a hash
# leave two open.
function(hash_base64 text result)
  set(digits "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/")
  string(SHA256 hash "${text}")
  string(APPEND hash "00")
  set(made "")
  foreach(at RANGE 0 63 3)
    string(SUBSTRING "${hash}" ${at} 3 three)
    math(EXPR high "0x${three} >> 6")
    math(EXPR low "0x${three} & 63")
    string(SUBSTRING "${digits}" ${high} 1 high)
    string(SUBSTRING "${digits}" ${low} 1 low)
    string(APPEND made "${high}${low}")
  endforeach()
  string(SUBSTRING "${made}" 0 43 made)
  set(${result} "${made}=" PARENT_SCOPE)
endfunction()

between(style style)
between(script script)
hash_base64("${style}" style)
hash_base64("${script}" script)
string(SHA256 tag "${page}")
string(SUBSTRING "${tag}" 0 16 tag)
string(FIND "${page}" ")console\"" closes)
if(NOT closes EQUAL -1)
  message(FATAL_ERROR "${INPUT}: it has what ends the text that it is put into")
endif()
file(WRITE "${OUTPUT}" "#include \"http/console.h\"

const char http::console_style_hash[] = \"sha256-${style}\";
const char http::console_script_hash[] = \"sha256-${script}\";
const char http::console_tag[] = \"\\\"${tag}\\\"\";
const char http::console_page[] = R\"console(${page})console\";
")
