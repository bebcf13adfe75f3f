# cmake -DFOLDER= -DOUTPUT= -P MakeSchemas.cmake
# Writes OUTPUT, a C++ source with the texts of FOLDER's schemas.
set(text "#include <alg_kit/stream/Schemas.h>\n\nnamespace stream {\n\n")
foreach(name IN ITEMS foxglove.SceneUpdate foxglove.FrameTransforms
    foxglove.PosesInFrame foxglove.Log
    alg_factory.Block alg_factory.Blobs alg_factory.Statistics)
  file(READ "${FOLDER}/${name}.json" schema)
  string(STRIP "${schema}" schema)
  string(REGEX REPLACE "^.*\\." "" short "${name}")
  string(APPEND text "const std::string_view k${short}Schema = R\"schema(${schema})schema\";\n\n")
endforeach()
string(APPEND text "}  // namespace stream\n")
file(WRITE "${OUTPUT}" "${text}")
