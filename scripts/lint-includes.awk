# Reads "file:line:#include ..." lines and prints those that break the rules of includes, with what is wrong.
# -v rules=FILE: prefixes of third-party headers and the folders that may hold them.
# -v modules=FILE: path|level|dependency;dependency of each module.

function startsWith(text, prefix) { return substr(text, 1, length(prefix)) == prefix }
function fault(words) { print file ":" line ": " words ": " include; }

# The deepest module whose folder holds the file, without "src/".
function moduleOf(path,   name, best) {
    best = ""
    for (name in dependencies)
        if (startsWith(path, "src/" name "/") && length(name) > length(best)) best = name
    return best
}

BEGIN {
    while ((getline text < rules) > 0) {
        if (text ~ /^#/ || text !~ /[^ ]/) continue
        count = split(text, words, / +/)
        for (i = 2; i <= count; ++i) allowed[words[1]] = allowed[words[1]] " " words[i]
    }
    while ((getline text < modules) > 0) {
        split(text, words, "|")
        dependencies[words[1]] = ";" words[3] ";"
    }
    # Headers of POSIX and Linux that look like a library's.
    posix = "^(sys/|linux/|netinet/|arpa/)|^(unistd|fcntl|poll|signal|pthread|sched|pwd|grp|dirent|dlfcn|spawn|termios|" \
            "utime|errno|stdio|stdlib|string|strings|stdint|time|math|setjmp|malloc|execinfo|fnmatch|glob|ftw)\\.h$"
}

{
    split($0, parts, ":")
    file = parts[1]
    line = parts[2]
    include = $0
    sub(/^[^:]*:[^:]*:/, "", include)
    if (!match(include, /[<"][^>"]*[>"]/)) next
    quoted = substr(include, RSTART, 1) == "\""
    header = substr(include, RSTART + 1, RLENGTH - 2)
    isTest = file ~ /(_test\.cpp|Fixture\.h)$/ || file ~ /^(tests|bench|examples|fuzz)\//

    if (header ~ /^\.\.?\//) { fault("leads out of its folder"); next }
    if (header ~ /^Q[A-Z]/ || header ~ /^Qt/) { fault("Qt has no place here"); next }
    module = moduleOf(file)

    if (quoted) {
        target = ""
        for (name in dependencies)
            if (startsWith(header, name "/") && length(name) > length(target)) target = name
        if (target == "" || module == "" || target == module) next
        if (header ~ /\/internal\//) fault("is private to " target)
        else if (!isTest && index(dependencies[module], ";" target ";") == 0)
            fault("module " module " does not declare " target)
        next
    }

    if (header !~ /[.\/]/ || header ~ posix) next
    rule = ""
    for (prefix in allowed)
        if (startsWith(header, prefix) && length(prefix) > length(rule)) rule = prefix
    if (rule == "") { fault("is named by no rule of " rules); next }
    if (isTest) next
    count = split(allowed[rule], folders, " ")
    good = 0
    for (i = 1; i <= count; ++i) if (startsWith(file, folders[i] "/")) good = 1
    if (!good) fault("may stand in" allowed[rule] " only")
    # What stands above a module must not see its libraries: only base shows two of them.
    else if (file ~ /\.h$/ && file !~ /\/internal\// && module != "" && module != "base")
        fault("stands in a public header")
}
