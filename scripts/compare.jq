# Rows of scripts/demo's table from what was sent, recorded and replayed: stream, group, three counts, digest, verdict.
def by_group: [.[0].streams[] | {key: .address, value: .}] | from_entries;
def number: .datagrams // .records;
def count: if . then "\(number)/\(.bytes)" else "-" end;
def same: [number, .bytes, .digest];

($sent | by_group) as $s | ($recorded | by_group) as $c | ($replayed | by_group) as $p
| ($s + $c + $p) | keys_unsorted[] as $group
| ($s[$group] // $c[$group] // $p[$group]) as $any
| select([$s, $c, $p] | map(.[$group] // {datagrams: 0} | number) | add > 0)
| [ $any.stream, $group, ($s[$group] | count), ($c[$group] | count), ($p[$group] | count), $any.digest,
    ( if $group | startswith("236.6.7.") then "shared, not compared"
      elif $s[$group] and $c[$group] and $p[$group] and ($s[$group] | same) == ($c[$group] | same)
           and ($s[$group] | same) == ($p[$group] | same) and ($s[$group] | number) > 0 then "equal"
      else "DIFFERENT" end ) ]
| @tsv
