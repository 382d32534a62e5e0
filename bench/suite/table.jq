# The suite's JSON runs (slurped) as markdown: one table against the goals,
# one against the peers.
def photo: if (.name | test("photo:1")) then "4000x3000" elif (.name | test("photo:0")) then "1200x800" else "shipped" end;
def stage: .name | split("/")[0];
def num: if . == null then "" elif . >= 100 then (. | round | tostring)
    else ((. * 10 | round) / 10 | tostring) end;
def met($value; $goal; $smaller):
    if $goal == null or $goal == 0 then "-"
    elif ($smaller and $value < $goal) or ((($smaller) | not) and $value >= $goal) then "yes"
    else "NO" end;
def standard: ["ms", "max_ms", "cpu_ms", "goal_ms", "peak_MiB", "peer_ms", "speedup"];
def details: [to_entries[] | select(.key as $k | (standard | index($k)) == null)
    | select(.value | type == "number") | select(.key | test("^(real|cpu)_time$|^iterations$|^repetition|_index$|^threads$|^goal_") | not)
    | "\(.key)=\(.value | num)"] | join(" ");

[.[] | .context as $context | .benchmarks[] | . + {machine: $context.host_name}] as $runs
| ($runs | map(select(.peer_ms == null and .error_occurred != true))) as $goals
| ($runs | map(select(.peer_ms != null))) as $peers
| "| stage | photo | median ms | worst ms | cpu ms | goal | met | peak MiB | details |",
  "|---|---|---|---|---|---|---|---|---|",
  ($goals[] |
    (if .worst_ratio != null then "ratio < \(.goal_ratio | num) of copy"
     elif (.goal_ms // 0) > 0 then "< \(.goal_ms | num) ms" else "" end) as $goal
    | (if .worst_ratio != null then met(.worst_ratio; .goal_ratio; true)
       else met(.ms; .goal_ms; true) end) as $met
    | (if .goal_growth_MiB != null and .goal_growth_MiB > 0 then
         ", growth < \(.goal_growth_MiB | num) MiB: \(met(.growth_MiB; .goal_growth_MiB; true))" else "" end) as $growth
    | (if .goal_peak_MiB != null then ", peak < \(.goal_peak_MiB | num) MiB: \(met(.peak_MiB; .goal_peak_MiB; true))" else "" end) as $peak
    | "| \(stage) | \(photo) | \(.ms | num) | \(.max_ms | num) | \(.cpu_ms | num) | \($goal) | \($met)\($growth)\($peak) | \(.peak_MiB | num) | \(details) |"),
  "",
  "| against | photo | ours ms | theirs ms | speedup | goal | met |",
  "|---|---|---|---|---|---|---|",
  ($peers[] |
    ({PeerSlic: 8, PeerGrabCut: 20, PeerScissors: 2}[stage]) as $goal
    | (if photo == "1200x800" then $goal else null end) as $goal
    | "| \(stage | ltrimstr("Peer")) | \(photo) | \(.ms | num) | \(.peer_ms | num) | \(.speedup | num)x | \(if $goal then ">= \($goal)x" else "" end) | \(met(.speedup; $goal; false)) |")
