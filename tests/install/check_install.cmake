file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}")
    endif()
    set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(f include/yovolib/yovolib.h include/yovolib/ydebug.h include/yovolib/yovolib_export.h
          ${LIBDIR}/cmake/YovoLib/YovoLibConfig.cmake ${LIBDIR}/pkgconfig/yovolib.pc)
    if(NOT EXISTS ${prefix}/${f})
        message(FATAL_ERROR "not installed: ${f}")
    endif()
endforeach()
file(GLOB private_headers ${prefix}/include/yovolib/*_p.h)
if(private_headers)
    message(FATAL_ERROR "private headers installed: ${private_headers}")
endif()

run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer -G ${GENERATOR}
    -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${WORK_DIR}/consumer/consumer)
if(NOT last_output MATCHES "consumer: ok")
    message(FATAL_ERROR "unexpected output: ${last_output}")
endif()
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${WORK_DIR}/consumer/every_class)
if(NOT last_output MATCHES "every class: ok")
    message(FATAL_ERROR "unexpected output: ${last_output}")
endif()

# The pkg-config file describes the same library.
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/${LIBDIR}/pkgconfig pkg-config --libs yovolib)
if(NOT last_output MATCHES "-lyovolib")
    message(FATAL_ERROR "pkg-config: ${last_output}")
endif()
