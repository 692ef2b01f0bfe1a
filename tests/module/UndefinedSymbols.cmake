# The module calls its platform and a little of the standard library, nothing else: above all not
# puts or putchar, which a platform that brings its own printf could not catch.
include(${CMAKE_CURRENT_LIST_DIR}/Symbols.cmake)

set(platform
    semTake semGive taskDelay sysClkRateGet
    ciLibLoad ciLibGetCardIndex ciLibGetInsertCard ciLibCaSysIdMatch ciLibSendCaPmt
    qm_ci_ca_pmt_clr resetCAM EXT_Clear_Ca_Sys_Id
    CaPmtInfo CaPmtSem CaPMTFlag caPmtReplyInfo
    AlarmAdd AlarmDel GetInPortFormList GetMuxCardFormList is_all_card_loaded
    OSTimeGet get_inc_of_time bbPrintf)
set(library malloc memset memcpy memmove memcmp printf)
set(linker _GLOBAL_OFFSET_TABLE_)

symbols(undefined --undefined-only)
set(foreign ${undefined})
list(REMOVE_ITEM foreign ${platform} ${library} ${linker})
fail_on("the module needs symbols that no platform offers" ${foreign})

set(unused ${platform} malloc printf)
list(REMOVE_ITEM unused ${undefined})
fail_on("the module does not use parts of its platform" ${unused})
