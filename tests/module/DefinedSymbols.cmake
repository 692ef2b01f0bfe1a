# State that is private to the module cannot be reached through the linker; its functions and
# globals can, under their plain C names.
include(${CMAKE_CURRENT_LIST_DIR}/Symbols.cmake)

set(private
    ciIfInitFlag ciIfVer ciAlarmDlyTime CaPmtVerNum
    not_err_all_time not_err_part_time err_all_time err_all_flag err_part_flag
    ca_pmt_send_time ca_pmt_query_time capmt_first_send dese_ok not_ok_time not_err_time
    sValInitDone ok_time_cnt err_time_cnt checkers alarm_index alarm_traped rst_cam_time_cnt first_rst)
set(exported
    pCiData DescStatus TIME_CAPMT TIME_FIRST_RESET TIME_RESET TIME_PART_RESET TIME_NO_RESET
    caPmtQuery ciProFlag
    descIfRegist ciTskInit camStatusCheck camAlarm camAlarmCheck PreCAMFilte getSlotDescPidInfo
    getDescStatWeb caPMTSend
    ci_Help printCiIfVer printCiCard getCAinfo printDesSta ClrAllDescCC CheckDescCC testprefilter
    test_bit
    cimax_sync_ok cimax_pid_rate_pre cimax_sys_rate_pre cimax_vld_rate_pre SetPreCAMCC GetPreCAMCC
    ClrAllPreCAMPidExist GetPreCAMPidExist cimax_pid_rate cimax_sys_rate cimax_vld_rate SetCAMCC
    GetCAMCC ClrAllCAMPidExist GetCAMPidExist PllReg PllLock SetCamFlit wrDesPid rdDescStat
    ciIfInit ciAlarmDlyTimeInit clrSlotDescPID clrDescStat getDescPidInfo getDescStat casidMatch
    getFpgaDescPidSta setCAM camReset)

symbols(defined --defined-only --extern-only)

set(missing ${exported})
list(REMOVE_ITEM missing ${defined})
fail_on("the module does not define" ${missing})

set(visible)
foreach(name IN LISTS private)
  # in C or as a C++ variable, alone or inside a namespace
  foreach(symbol IN LISTS defined)
    if(symbol MATCHES "^(_Z.*[0-9])?${name}(E|B.*)?$")
      list(APPEND visible ${symbol})
    endif()
  endforeach()
endforeach()
fail_on("private state is visible to the linker" ${visible})
