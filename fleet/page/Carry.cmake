# Writes OUT, a C++ source with the texts of FILES.
set( table "" )
set( source "#include <array>\n\n#include \"page/Page.h\"\n\nnamespace Fleet {\n\nnamespace {\n\n" )
foreach( file IN LISTS FILES )
   get_filename_component( name "${file}" NAME )
   string( MAKE_C_IDENTIFIER "${name}" variable )
   file( READ "${file}" text )
   string( APPEND source "constexpr std::string_view ${variable} = R\"page(${text})page\";\n\n" )
   string( APPEND table "   NamedPageFile{ \"/${name}\", ${variable} },\n" )
endforeach()
string( APPEND source "constexpr std::array carried{\n${table}};\n\n}  // namespace\n\n"
   "std::span<NamedPageFile const> pageFiles() { return carried; }\n\n}  // namespace Fleet\n" )
file( WRITE "${OUT}" "${source}" )
