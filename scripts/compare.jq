# Rows of scripts/demo's table from what was sent, recorded, and recorded again from the replay: stream, group, three
# counts, digest, verdict.
def by_group: [.[0].streams[] | {key: .address, value: .}] | from_entries;
def number: .datagrams;
def count: if . then "\(number)/\(.bytes)" else "-" end;
def same: [number, .bytes, .digest];
# Payloads of image state messages without their time, 8 bytes at offset 114.
def timeless: map(.payload | .[:228] + .[244:]);

($sent | by_group) as $s | ($recorded | by_group) as $c | ($replayed | by_group) as $p
| ($states | length > 0 and timeless == ($statesagain | timeless)) as $samestates
| ($s + $c + $p) | keys_unsorted[] as $group
| ($s[$group] // $c[$group] // $p[$group]) as $any
| select([$s, $c, $p] | map(.[$group] // {datagrams: 0} | number) | add > 0)
| [ $any.stream, $group, ($s[$group] | count), ($c[$group] | count), ($p[$group] | count), $any.digest,
    ( if $group | startswith("236.6.7.") then "shared, not compared"
      elif [$s[$group], $c[$group], $p[$group]] | any(. == null) then "DIFFERENT"
      elif ($s[$group] | same) != ($c[$group] | same) or ($s[$group] | number) == 0 then "DIFFERENT"
      elif ($c[$group] | same) == ($p[$group] | same) then "equal"
      elif $any.stream == "imageState" and $samestates then "equal but for the time of replay"
      else "DIFFERENT" end ) ]
| @tsv
