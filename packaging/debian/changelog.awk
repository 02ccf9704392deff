# Makes a Debian changelog of CHANGES.md: one entry for each "## VERSION (DATE)", one item for each
# "- " under it. Wants package, contact and now (the date of what is not released yet).

function flush_item(    count, words, number, line) {
  count = split(item, words, " ")
  line = "  *"
  for (number = 1; number <= count; ++number) {
    if (length(line) + 1 + length(words[number]) > 78) {
      print line
      line = "   "
    }
    line = line " " words[number]
  }
  if (count > 0) print line
  item = ""
}

function end_entry(    command, stamp) {
  flush_item()
  if (version == "") return
  stamp = now
  if (date ~ /^[0-9]+-[0-9]+-[0-9]+$/) {
    command = "LC_ALL=C TZ=UTC date -R -d " date
    command | getline stamp
    close(command)
  }
  print "\n -- " contact "  " stamp "\n"
}

/^## / {
  end_entry()
  version = $2
  date = $3
  gsub(/[()]/, "", date)
  print package " (" version ") " (date ~ /^[0-9]/ ? "stable" : "UNRELEASED") "; urgency=medium\n"
  next
}
/^- /    { flush_item(); item = substr($0, 3); next }
/^  /    { item = item " " $0; next }
         { flush_item() }
END      { end_entry() }
