# Writes OUT: a C++ source holding every file of SOURCE_DIR listed in FILES (paths relative to
# SOURCE_DIR) as bytes, so the resources travel inside the library.
set(body "")
foreach(name IN LISTS FILES)
  file(READ "${SOURCE_DIR}/${name}" hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
  string(APPEND body "    {\"${name}\", []{ static constexpr char b[] = {${bytes} 0}; return std::string_view(b, sizeof b - 1); }()},\n")
endforeach()
file(WRITE "${OUT}.tmp" "// Generated from resources/; edit the files there.\n#include \"bic/resources/bundle.hpp\"\n\n#include <utility>\n\nnamespace bic::resources {\n\nstd::optional<std::string_view> resourceData(std::string_view name) {\n  static const std::pair<std::string_view, std::string_view> all[] = {\n${body}  };\n  for (const auto& [n, data] : all)\n    if (n == name) return data;\n  return std::nullopt;\n}\n\n} // namespace bic::resources\n")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
