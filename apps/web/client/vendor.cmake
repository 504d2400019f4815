# Puts the plotting library beside the console:
#
#   cmake -D NPM=npm -D SOURCE=apps/web/client -D WORK=folder -D OUT=folder -P vendor.cmake
#
# Where npm is missing or reaches nothing, the build goes on: the console then says that there are no plots, and the next
# build tries again.
file(MAKE_DIRECTORY ${WORK})
configure_file(${SOURCE}/package.json ${WORK}/package.json COPYONLY)
configure_file(${SOURCE}/package-lock.json ${WORK}/package-lock.json COPYONLY)

set(LIBRARY ${WORK}/node_modules/uplot)
if(NPM)
    execute_process(
        COMMAND ${NPM} ci --ignore-scripts --no-audit --no-fund --prefer-offline --fetch-retries=1 --fetch-timeout=20000
        WORKING_DIRECTORY ${WORK} OUTPUT_QUIET ERROR_VARIABLE PROBLEM RESULT_VARIABLE RESULT TIMEOUT 300)
else()
    set(RESULT "npm is not installed")
endif()
if(NOT RESULT EQUAL 0)
    message("The console's plots are not available: npm did not bring the plotting library (${RESULT}).\n${PROBLEM}")
    return()
endif()
file(MAKE_DIRECTORY ${OUT})
configure_file(${LIBRARY}/LICENSE ${OUT}/uPlot.LICENSE COPYONLY)
configure_file(${LIBRARY}/dist/uPlot.min.css ${OUT}/uPlot.min.css COPYONLY)
configure_file(${LIBRARY}/dist/uPlot.iife.min.js ${OUT}/uPlot.iife.min.js COPYONLY)
