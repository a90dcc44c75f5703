# One call declares a module: its place on the ladder, what it may use, and what it links.
#
#   velm_module(platform/draw
#       LEVEL 1
#       DEPENDS base            modules whose headers its code may include; each must stand on a lower level
#       EXPOSES base            those among DEPENDS whose types stand in its own public headers
#       LIBRARIES PkgConfig::CAIRO)
#
# The folder's *.h files are its public headers, reached as <module>/Name.h through build/include/<target> only, so
# that a header of a module that was not declared is not found. internal/*.h stay private. Sources are *.cpp and
# internal/*.cpp, unit tests *_test.cpp; tests may use what stands in TEST_DEPENDS besides.
# Third-party libraries are linked PRIVATE: nothing above a module sees them.

set(VELM_MODULE_TABLE "${CMAKE_BINARY_DIR}/modules.txt")
file(WRITE "${VELM_MODULE_TABLE}" "")

function(velm_target_name out path)
    string(REPLACE "/" "_" name "${path}")
    set(${out} "${name}" PARENT_SCOPE)
endfunction()

# Refuses a dependency that does not stand below the module itself.
function(velm_check_level path level dependencies)
    foreach(dependency IN LISTS dependencies)
        velm_target_name(dependency_target "${dependency}")
        if(NOT TARGET ${dependency_target})
            message(FATAL_ERROR "Module ${path} depends on ${dependency}, which is not declared before it.")
        endif()
        get_target_property(dependency_level ${dependency_target} VELM_LEVEL)
        if(NOT dependency_level LESS level)
            message(FATAL_ERROR "Module ${path} (level ${level}) may not use ${dependency} (level ${dependency_level}): "
                                "dependencies point downward only.")
        endif()
    endforeach()
endfunction()

function(velm_module path)
    cmake_parse_arguments(M "" "LEVEL" "DEPENDS;EXPOSES;LIBRARIES;TEST_DEPENDS;TEST_LIBRARIES" ${ARGN})
    velm_target_name(target "${path}")
    velm_check_level("${path}" "${M_LEVEL}" "${M_DEPENDS}")
    foreach(module IN LISTS M_EXPOSES)
        if(NOT module IN_LIST M_DEPENDS)
            message(FATAL_ERROR "Module ${path} exposes ${module} without depending on it.")
        endif()
    endforeach()

    set(directory "${CMAKE_CURRENT_SOURCE_DIR}")
    file(GLOB headers CONFIGURE_DEPENDS "${directory}/*.h")
    file(GLOB sources CONFIGURE_DEPENDS "${directory}/*.cpp" "${directory}/internal/*.cpp")
    file(GLOB tests CONFIGURE_DEPENDS "${directory}/*_test.cpp" "${directory}/internal/*_test.cpp")
    if(tests)
        list(REMOVE_ITEM sources ${tests})
    endif()

    # The public face of the module: links to its headers, and nothing else of its folder.
    set(include_root "${CMAKE_BINARY_DIR}/include/${target}")
    file(REMOVE_RECURSE "${include_root}")
    file(MAKE_DIRECTORY "${include_root}/${path}")
    set(public_headers "")
    foreach(header IN LISTS headers)
        get_filename_component(name "${header}" NAME)
        file(CREATE_LINK "${header}" "${include_root}/${path}/${name}" SYMBOLIC)
        list(APPEND public_headers "${include_root}/${path}/${name}")
    endforeach()

    if(NOT sources)
        set(sources "${CMAKE_SOURCE_DIR}/cmake/empty.cpp")
    endif()
    add_library(${target} STATIC ${sources})
    set_target_properties(${target} PROPERTIES VELM_LEVEL "${M_LEVEL}" VELM_PATH "${path}")
    if(public_headers)
        target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS "${include_root}" FILES ${public_headers})
    else()
        target_include_directories(${target} PUBLIC "${include_root}")
    endif()
    foreach(module IN LISTS M_DEPENDS)
        velm_target_name(module_target "${module}")
        if(module IN_LIST M_EXPOSES)
            target_link_libraries(${target} PUBLIC ${module_target})
        else()
            target_link_libraries(${target} PRIVATE ${module_target})
        endif()
    endforeach()
    target_link_libraries(${target} PRIVATE velm_options ${M_LIBRARIES})
    file(APPEND "${VELM_MODULE_TABLE}" "${path}|${M_LEVEL}|${M_DEPENDS}\n")

    if(tests AND VELM_TESTS)
        add_executable(${target}_test ${tests})
        target_link_libraries(${target}_test PRIVATE ${target} velm_options test_support GTest::gmock GTest::gtest
                                                     GTest::gtest_main ${M_LIBRARIES} ${M_TEST_LIBRARIES})
        foreach(module IN LISTS M_DEPENDS M_TEST_DEPENDS)
            velm_target_name(module_target "${module}")
            target_link_libraries(${target}_test PRIVATE ${module_target})
        endforeach()
        gtest_discover_tests(${target}_test TEST_PREFIX "${path}." DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
                             PROPERTIES TIMEOUT 120 LABELS "unit")
    endif()
endfunction()
