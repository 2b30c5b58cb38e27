# Rows of scripts/demo's table from what kestova diff found between sent and recorded, and between recorded and
# replayed: stream, group, three numbers of datagrams, verdict.
def of_a: if . then .same + .only_a + .changed + .moved else 0 end;
def of_b: if . then .same + .only_b + .changed + .moved else 0 end;
def found($what):
    if . == null then ["not \($what)"]
    else [[.only_a, "not \($what)"], [.only_b, "\($what) only"], [.changed, "changed"], [.moved, "moved"]
          | select(.[0] != 0) | "\(.[0]) \(.[1])"] end;

([$recorded[0].streams[], $replayed[0].streams[]] | map(.address) | unique_by(split("[.:]"; null) | map(tonumber)))[]
| . as $group
| [$recorded, $replayed | .[0].streams | map(select(.address == $group))[0]] as [$first, $second]
| (($first | found("recorded")) + ($second | found("replayed"))) as $differences
| [ ($first // $second).stream, $group, ($first | of_a), ($first | of_b), ($second | of_b),
    (if $differences == [] then "equal" else $differences | join(", ") end) ]
| @tsv
