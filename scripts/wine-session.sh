# Sourced by scripts/test and scripts/demo: a private Wine prefix, copied from a prepared one, and
# a private Xvfb display. wine_session_start exports WINEPREFIX and DISPLAY; wine_session_stop
# stops only the wineserver and Xvfb it started and removes the prefix.

wine_session_prefix=""
wine_session_xvfb=""

# wine_session_start ROOT WORKDIR
wine_session_start() {
    local root=$1 workdir=$2
    export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
    local template
    template="$root/build/wine-template-$(wine --version 2>/dev/null | tr -c 'A-Za-z0-9.\n' '_')"
    if [ ! -f "$template/system.reg" ]; then
        echo "== preparing a Wine prefix"
        rm -rf "$template"
        WINEPREFIX="$template" wine wineboot >/dev/null 2>&1 </dev/null
        WINEPREFIX="$template" wineserver -w
    fi
    wine_session_prefix="$workdir/wineprefix"
    rm -rf "$wine_session_prefix"
    cp -a "$template" "$wine_session_prefix"
    export WINEPREFIX="$wine_session_prefix"

    local display=99
    while [ -e "/tmp/.X11-unix/X$display" ] || [ -e "/tmp/.X$display-lock" ]; do
        display=$((display + 1))
    done
    Xvfb ":$display" -screen 0 1024x768x24 -nolisten tcp >/dev/null 2>&1 &
    wine_session_xvfb=$!
    export DISPLAY=":$display"

    # A persistent server, booted before any piped run, so that every program starts quickly and
    # no Wine service inherits our pipes.
    wineserver -p >/dev/null 2>&1 </dev/null
    wine wineboot >/dev/null 2>&1 </dev/null
}

wine_session_stop() {
    if [ -n "$wine_session_prefix" ]; then
        WINEPREFIX="$wine_session_prefix" wineserver -k >/dev/null 2>&1
        WINEPREFIX="$wine_session_prefix" wineserver -w >/dev/null 2>&1
        rm -rf "$wine_session_prefix"
        wine_session_prefix=""
    fi
    if [ -n "$wine_session_xvfb" ]; then
        kill "$wine_session_xvfb" 2>/dev/null
        wait "$wine_session_xvfb" 2>/dev/null
        wine_session_xvfb=""
    fi
}
