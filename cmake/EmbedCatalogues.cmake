# Writes OUT: a C++ source holding every resources/strings/<lang>/<table>.po of SOURCE_DIR as
# text, so the catalogues travel inside the library.
file(GLOB_RECURSE pos RELATIVE "${SOURCE_DIR}" "${SOURCE_DIR}/*.po")
list(SORT pos)
set(body "")
foreach(po IN LISTS pos)
  get_filename_component(table "${po}" NAME_WE)
  get_filename_component(dir "${po}" DIRECTORY)
  get_filename_component(language "${dir}" NAME)
  file(READ "${SOURCE_DIR}/${po}" text)
  string(APPEND body "    {\"${language}\", \"${table}\", R\"catalogue(${text})catalogue\"},\n")
endforeach()
file(WRITE "${OUT}.tmp" "// Generated from resources/strings; edit the catalogues there.\n#include \"catalogues.hpp\"\n\nnamespace bic::resources {\n\nstd::span<const Catalogue> catalogues() {\n  static constexpr Catalogue all[] = {\n${body}  };\n  return all;\n}\n\n} // namespace bic::resources\n")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
