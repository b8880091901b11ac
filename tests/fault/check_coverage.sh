#!/usr/bin/env bash
# Fails when the library calls a libc function that can fail and that the injector does not make fail.
# check_coverage.sh <library> <injector>
set -eu

# Cannot fail, or not in a way that the caller would see.
harmless=" bcmp clock_gettime dup fnmatch free getenv geteuid getpid getrlimit gettimeofday kill madvise memcmp memcpy memmove memset
 pthread_key_delete pthread_mutex_destroy pthread_mutex_init pthread_mutex_lock pthread_mutex_unlock
 pthread_mutexattr_destroy pthread_mutexattr_init pthread_mutexattr_settype pthread_once pthread_self
 pthread_setcancelstate pthread_sigmask secure_getenv sigdelset sigfillset sleep snprintf sprintf sscanf strchr strcmp strcpy strcspn strlen strncmp strncpy
 strnlen strrchr strtol strtoul syscall sysconf syslog time timezone tzname usleep "
harmless=${harmless//$'\n'/}

injected=" $(nm -D --defined-only "$2" | awk '{print $3}' | tr '\n' ' ') "
missing=0
while read -r name; do
    plain=${name#__isoc99_}
    plain=${plain#__isoc23_}
    plain=${plain#__}
    plain=${plain%_chk}
    case "$harmless$injected" in
    *" $name "* | *" $plain "*) ;;
    *)
        echo "not injected: $name"
        missing=1
        ;;
    esac
done < <(nm -D --undefined-only "$1" | awk '$1 == "U" {sub(/@.*/, "", $2); print $2}' |
    grep -Ev '^_*(asan|tsan|ubsan|errno_location|stack_chk_fail|register_atfork|cxa_)')
exit $missing
