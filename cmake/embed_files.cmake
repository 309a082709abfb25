# Writes OUTPUT: a C++ source defining NAMESPACE::FUNCTION(), a vector of TYPE {path, text} with
# the files under SOURCE_DIR, declared in HEADER.
file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/*)
list(SORT files)
set(body "")
foreach(f ${files})
  file(READ ${SOURCE_DIR}/${f} text)
  string(APPEND body "      {\"${f}\", R\"QKFILE(${text})QKFILE\"},\n")
endforeach()
file(WRITE ${OUTPUT}.tmp "// Generated from ${SOURCE_DIR} by cmake/embed_files.cmake.\n#include \"${HEADER}\"\n\nnamespace ${NAMESPACE} {\n\nconst std::vector<${TYPE}>& ${FUNCTION}() {\n  static const std::vector<${TYPE}> t = {\n${body}  };\n  return t;\n}\n\n}  // namespace ${NAMESPACE}\n")
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
