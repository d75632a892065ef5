file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
    endif()
    set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} --component Unspecified)
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
# Nothing but the installed files' own search paths finds the libraries.
unset(ENV{LD_LIBRARY_PATH})
set(expected "<tds:GetDeviceInformation ></tds:GetDeviceInformation></s:Body></s:Envelope>")
run(${WORK_DIR}/consumer/consumer)
if(NOT last_output MATCHES "${expected}")
    message(FATAL_ERROR "unexpected output of the find_package consumer:\n${last_output}")
endif()

# The same program built by hand from what pkg-config says, the prefix moved meanwhile.
file(RENAME ${prefix} ${prefix}-moved)
set(prefix ${prefix}-moved)
file(GLOB pcdir ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "${pcdir}")
run(pkg-config --cflags --libs onviftypes)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
if(NOT "${flags}" MATCHES "-I${prefix}/")
    message(FATAL_ERROR "pkg-config does not name the moved prefix: ${flags}")
endif()
run(c++ -std=c++17 -fPIC ${CONSUMER_DIR}/main.cpp -o ${WORK_DIR}/pkgconfig-consumer ${flags}
    -Wl,-rpath,${prefix}/lib)
run(${WORK_DIR}/pkgconfig-consumer)
if(NOT last_output MATCHES "${expected}")
    message(FATAL_ERROR "unexpected output of the pkg-config consumer:\n${last_output}")
endif()

# The examples build on their own against the moved package.
run(${CMAKE_COMMAND} -S ${EXAMPLES_DIR} -B ${WORK_DIR}/examples -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/examples)

# The installed tool starts from the moved prefix on its own.
run(${prefix}/bin/onvif-cli --version)
if(NOT last_output MATCHES "onvif-cli")
    message(FATAL_ERROR "the installed onvif-cli says: ${last_output}")
endif()
