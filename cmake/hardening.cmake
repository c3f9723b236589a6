include(CheckCXXCompilerFlag)
include(CheckPIESupported)

if(CLOUDPROVIDER_HARDENING)
    check_cxx_compiler_flag(-fcf-protection CLOUDPROVIDER_HAS_CF_PROTECTION)
    check_pie_supported(LANGUAGES CXX)
endif()

# What makes a fault end the program rather than go on, in every configuration with optimization but not in Debug: what a
# sanitizer watches shall not be watched twice. The assertions of the standard library change no layout, so that consumers
# need not have them.
function(cloudprovider_harden target)
    set(optimized $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
    set(options -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS -fstack-protector-strong)
    if(CLOUDPROVIDER_HAS_CF_PROTECTION)
        list(APPEND options -fcf-protection)
    endif()
    target_compile_options(${target} PRIVATE "$<${optimized}:${options}>")
    target_link_options(${target} PRIVATE "$<${optimized}:LINKER:-z,relro,-z,now>")
endfunction()
