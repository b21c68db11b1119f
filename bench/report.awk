# Makes tables, and with svg=<file> the plot, from the rows of scripts/bench (see there). With limit=<ratio> it fails if
# a move of any tree takes more than that times the floor, by the median of the pairs.

{
    key = $1 " " $2
    if (!rounds[key]) keys[++count] = key
    if ($3 + 1 > rounds[key]) rounds[key] = $3 + 1
    for (i = 5; i <= NF; ++i) figure[key, $4, $3, i] = $i
}

function has(key, who) { return (key, who, 0, 5) in figure }

# The median of values[1..n], which it sorts.
function median(n,    i, j, v) {
    for (i = 2; i <= n; ++i) {
        v = values[i]
        for (j = i - 1; j > 0 && values[j] > v; --j) values[j + 1] = values[j]
        values[j + 1] = v
    }
    return n % 2 ? values[(n + 1) / 2] : (values[n / 2] + values[n / 2 + 1]) / 2
}

function middle(key, who, column,    i) {
    for (i = 0; i < rounds[key]; ++i) values[i + 1] = figure[key, who, i, column]
    return median(rounds[key])
}

function fastest(key, who) {
    middle(key, who, 5)
    return values[1]
}

# The median of the pairs' ratios; sets spread. With less, that column is taken off the first of a pair.
function ratio(key, who, other, column, less,    i, m) {
    if (!has(key, who) || !has(key, other)) return spread = ""
    for (i = 0; i < rounds[key]; ++i)
        values[i + 1] = (figure[key, who, i, column] - (less ? figure[key, "floor", i, less] : 0)) / figure[key, other, i, column]
    m = median(rounds[key])
    spread = sprintf("%.3f (%.2f to %.2f)", m, values[1], values[rounds[key]])
    return m
}

function cell(key, who, other, column, less) {
    ratio(key, who, other, column, less)
    return " " spread " |"
}

function header(titles,    words, n) {
    n = split(titles, words, "|")
    print "\n| " titles " |\n" substr("|---|---|---|---|---|---|---|---|---|---|---|---|---|", 1, 4 * n + 1)
}

END {
    header("tree|files|rounds|floor, ms|tarvel, ms|tarvel / floor|fastest / fastest|processor time|tarvel / looks")
    for (k = 1; k <= count; ++k) {
        key = keys[k]
        if (!has(key, "floor")) continue
        failed = failed || (limit && ratio(key, "tarvel", "floor", 5) > limit)
        split(key, words)
        print "| " words[1] " | " words[2] " | " rounds[key] " | " int(middle(key, "floor", 5)) " | " int(middle(key, "tarvel", 5)) \
            " |" cell(key, "tarvel", "floor", 5) \
            sprintf(" %.3f |", fastest(key, "tarvel") / fastest(key, "floor")) cell(key, "tarvel", "floor", 6) cell(key, "tarvel", "looks", 5)
    }
    if (limit) exit failed

    header("tree|files|floor: copy, ms|access lists, ms|configuration, ms|deletion, ms|xcopy and rd, ms|tarvel / xcopy and rd|without access lists")
    for (k = 1; k <= count; ++k) {
        key = keys[k]
        if (!has(key, "xcopy")) continue
        split(key, words)
        printf "| %s | %d |", words[1], words[2]
        for (i = 8; i <= 11; ++i) printf " %.1f |", middle(key, "floor", i)
        print " " int(middle(key, "xcopy", 5)) " |" cell(key, "tarvel", "xcopy", 5) cell(key, "tarvel", "xcopy", 5, 9)
    }

    header("files|floor, ms a file|tarvel, ms a file|xcopy and rd, ms a file|beyond the floor, ms a file|peak of floor, KiB|peak of tarvel, KiB|difference, KiB")
    for (k = 1; k <= count; ++k) {
        key = keys[k]
        if (key !~ /^wide/) continue
        split(key, words)
        n = words[2]
        for (i = 0; i < rounds[key]; ++i) values[i + 1] = (figure[key, "tarvel", i, 5] - figure[key, "floor", i, 5]) / n
        beyond = median(rounds[key])
        printf "| %d | %.3f | %.3f | %.3f | %+.3f | %d | %d | %+d |\n", n, middle(key, "floor", 5) / n, middle(key, "tarvel", 5) / n,
            middle(key, "xcopy", 5) / n, beyond, middle(key, "floor", 7), middle(key, "tarvel", 7),
            middle(key, "tarvel", 7) - middle(key, "floor", 7)
    }

    header("trace, wide 1000|ms|of tarvel without trace|processor time")
    key = "wide 1000"
    for (i = 1; i <= split("flow detail", words); ++i)
        print "| " words[i] " | " int(middle(key, words[i], 5)) " |" cell(key, words[i], "tarvel", 5) cell(key, words[i], "tarvel", 6)

    header("start|ms|beyond the empty program, ms|peak, KiB")
    key = "start 0"
    for (i = 1; i <= split("empty imports tarvel", words); ++i) {
        for (r = 0; r < rounds[key]; ++r) values[r + 1] = figure[key, words[i], r, 5] - figure[key, "empty", r, 5]
        beyond = median(rounds[key])
        printf "| %s | %.1f | %+.1f | %d |\n", words[i], middle(key, words[i], 5), beyond, middle(key, words[i], 7)
    }

    # The plot: milliseconds a file, from 0 to the next whole number, against the number of files.
    for (k = 1; k <= count; ++k)
        if (keys[k] ~ /^wide/)
            for (i = 1; i <= split("floor tarvel xcopy", who); ++i) {
                split(keys[k], words)
                y = middle(keys[k], who[i], 5) / words[2]
                if (y > top) top = int(y) + 1
            }
    print "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 640 360\" font-family=\"sans-serif\" font-size=\"13\">\n" \
        "<rect width=\"640\" height=\"360\" fill=\"white\"/>\n<text x=\"60\" y=\"24\">Milliseconds a file against number of files</text>" > svg
    for (y = 0; y <= top; ++y)
        printf "<path d=\"M60 %d H540\" stroke=\"#ddd\"/><text x=\"50\" y=\"%d\" text-anchor=\"end\">%d</text>\n", at_y(y), at_y(y) + 4, y > svg
    split("#777777 #0055aa #cc5500", colour)
    split("4 -6 14", shift)
    for (i = 1; i <= 3; ++i) {
        path = ""
        for (k = 1; k <= count; ++k) {
            if (keys[k] !~ /^wide/) continue
            split(keys[k], words)
            x = 60 + 480 * log(words[2] / 100) / log(200)
            y = at_y(middle(keys[k], who[i], 5) / words[2])
            path = path (path ? " L" : "M") sprintf("%.1f %.1f", x, y)
            printf "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"3\" fill=\"%s\"/>\n", x, y, colour[i] > svg
            if (i == 1) printf "<text x=\"%.1f\" y=\"340\" text-anchor=\"middle\">%d</text>\n", x, words[2] > svg
        }
        printf "<path d=\"%s\" fill=\"none\" stroke=\"%s\" stroke-width=\"2\"/><text x=\"550\" y=\"%.1f\" fill=\"%s\">%s</text>\n",
            path, colour[i], y + shift[i], colour[i], who[i] == "xcopy" ? "xcopy, rd" : who[i] > svg
    }
    print "</svg>" > svg
}

function at_y(value) { return 320 - 280 * value / top }
