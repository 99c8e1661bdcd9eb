# Runs an example in an empty folder and looks for what it should leave there: lines of its files, or of its output, which
# is kept as the file "output".
cmake_policy(VERSION 3.25)

function(expect file)
    file(STRINGS ${folder}/${file} lines)
    foreach(pattern IN LISTS ARGN)
        if(NOT "${lines}" MATCHES "${pattern}")
            message(SEND_ERROR "no \"${pattern}\" in ${file}:\n${lines}")
        endif()
    endforeach()
endfunction()

set(folder ${WORK}/${EXAMPLE})
file(REMOVE_RECURSE ${folder})
file(MAKE_DIRECTORY ${folder})
execute_process(COMMAND ${EMULATOR} ${PROGRAM} WORKING_DIRECTORY ${folder} OUTPUT_FILE ${folder}/output
    COMMAND_ERROR_IS_FATAL ANY)

if(EXAMPLE STREQUAL "minimal")
    expect(minimal.log "> <INFO> <Minimal> ready")
    expect(output "a line of channel 7 begins [0-9]+ <0x[0-9a-f]+:000> <INFO> <ch:7> ")
elseif(EXAMPLE STREQUAL "tracer")
    expect(device.log "> <CAL> <Trace> Calibration freq=1000000" "> <WARN> <Scanner> jam at 3")
elseif(EXAMPLE STREQUAL "rolling_log")
    # The newest lines are in the log, those before them in its backup, and both are bounded.
    expect(device.log "<CAL>" "page 400 is late")
    expect(device.log.1 "page 1 is late")
    foreach(file device.log device.log.1)
        file(SIZE ${folder}/${file} size)
        if(size GREATER 21000)
            message(SEND_ERROR "${file} has ${size} bytes")
        endif()
    endforeach()
elseif(EXAMPLE STREQUAL "triage_callback")
    expect(crash.txt "Error Code: 31AC05" "Crash Type: 2" "Job: invoice.pdf, page 3 of 7.*Loaded Modules"
        "All Done!!")
    expect(device.log "<FATAL> .*DeviceFatalError called, error is 31ac05")
elseif(EXAMPLE STREQUAL "own_rings")
    expect(output "event 7, page 1;.*event 7, page 2;.*event 7, page 3")
else()
    message(FATAL_ERROR "nothing is known of ${EXAMPLE}")
endif()
