# Writes a C++ source that holds a text file as a string constant:
#   cmake -DINPUT=file -DOUTPUT=file.cpp -DSYMBOL=name -P embed_text.cmake
# The constant is `extern const char* const <SYMBOL>` in namespace
# tarnwick::embedded, stored as a raw string literal.
file(READ ${INPUT} content)
string(FIND "${content}" ")EMBED\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${INPUT} holds the raw string delimiter )EMBED\"")
endif()
file(WRITE ${OUTPUT} "// Generated from ${INPUT}; do not edit.\nnamespace tarnwick::embedded {\nextern const char* const ${SYMBOL};\nconst char* const ${SYMBOL} = R\"EMBED(${content})EMBED\";\n}\n")
