# vesk_add_protocol(target file.proto)
#
# Generates the messages and the gRPC service of one proto file and compiles them, once, into the
# static library `target`. Users include <file.pb.h> and <file.grpc.pb.h>; the headers are system
# headers and our warnings stop at them.
#
# The symbols are hidden, so a plug-in that links the library does not export them. The messages
# register themselves with protobuf when the code is loaded, and registering a file twice ends the
# process: of the binaries loaded into one process, only one may link `target`.
function(vesk_add_protocol target proto)
    get_filename_component(name "${proto}" NAME_WE)
    get_filename_component(proto "${proto}" ABSOLUTE)
    get_filename_component(directory "${proto}" DIRECTORY)
    set(output "${CMAKE_CURRENT_BINARY_DIR}/generated")
    set(sources "${output}/${name}.pb.cc" "${output}/${name}.grpc.pb.cc")
    set(headers "${output}/${name}.pb.h" "${output}/${name}.grpc.pb.h")
    file(MAKE_DIRECTORY "${output}")

    add_custom_command(
        OUTPUT ${sources} ${headers}
        COMMAND protobuf::protoc
            "--proto_path=${directory}"
            "--cpp_out=${output}"
            "--grpc_out=${output}"
            "--plugin=protoc-gen-grpc=${VESK_GRPC_CPP_PLUGIN}"
            "${proto}"
        DEPENDS "${proto}" protobuf::protoc
        COMMENT "Generating ${name}.proto"
        VERBATIM
    )
    add_library(${target} STATIC ${sources} ${headers})
    target_compile_options(${target} PRIVATE -w)
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
    )
    target_include_directories(${target} SYSTEM PUBLIC "${output}")
    target_link_libraries(${target} PUBLIC gRPC::grpc++ protobuf::libprotobuf)
endfunction()
