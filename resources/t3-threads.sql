-- One row for each live thread that had an event since ?1, or has something open for the person
-- however long ago. ?1 is a date in T3's own form ("2026-10-05T09:00:00.000Z"), in which texts
-- compare as their dates do.
--
-- Rows come one by one and newest first, in the order of "listed": a damaged page ends the statement,
-- but not before what could be read has come. Hence no sorting at the end.
--
-- Payloads that are no JSON count as empty: json_extract would end the whole statement over one.
-- Items are reached through runs in progress only, as a thread can have tens of thousands.
--
-- A run that has been silent since before ?1 is not listed. T3 keeps updated_at moving while anything
-- happens, so a day of silence nearly always means that the server died and left the row behind.
with
-- The newest run in progress of each thread. "queued" is named and then taken out because the words
-- must be those of the partial index. The other columns are those of the row with the maximum.
open_runs as materialized (
  select thread_id, run_id, max(ordinal) as ordinal
  from orchestration_v2_projection_runs
  where status in ('queued', 'preparing', 'starting', 'running', 'waiting')
    and status <> 'queued'
  group by thread_id
),
-- T3 itself answers the two kinds of request that are left out. A secret is asked for by an item
-- alone; it is among the last ones, as the run waits for it.
pending as materialized (
  select thread_id, count(*) as pending_count
  from (
    select thread_id
    from orchestration_v2_projection_runtime_requests
    where status = 'pending' and kind not in ('dynamic_tool_call', 'auth_refresh')
    union all
    select thread_id
    from open_runs
    where exists (
      select 1
      from (
        select item.type, item.status
        from orchestration_v2_projection_turn_items item
        where item.run_id = open_runs.run_id
        order by item.ordinal desc
        limit 500
      )
      where type = 'secret_request' and status = 'waiting'
    )
  )
  group by thread_id
),
listed as materialized (
  select thread_id, updated_at
  from orchestration_v2_projection_threads
  where deleted_at is null and archived_at is null and updated_at >= ?1
  union
  select thread.thread_id, thread.updated_at
  from pending
  cross join orchestration_v2_projection_threads thread on thread.thread_id = pending.thread_id
  where thread.deleted_at is null and thread.archived_at is null
  order by updated_at desc, thread_id
  limit -1  -- without a limit SQLite takes the order of a part for needless
),
-- The run that speaks for a thread: the one in progress, so that a follow-up in the queue does not
-- hide it, else the newest that is not held back in the queue. A subagent inside a provider has no
-- runs; its parent keeps its state.
threads as (
  select
    thread.thread_id,
    thread.project_id,
    thread.title,
    thread.default_provider,
    thread.created_at,
    thread.updated_at,
    case when json_valid(thread.payload_json) then thread.payload_json end as payload,
    open_runs.run_id as open_run_id,
    coalesce(open_runs.run_id, (
      select run.run_id
      from orchestration_v2_projection_runs run
      where run.thread_id = thread.thread_id
        and not (run.status = 'queued'
                 and case when json_valid(run.payload_json)
                          then json_extract(run.payload_json, '$.queueHeld') end is 1)
      order by run.ordinal desc
      limit 1
    )) as shown_run_id,
    (
      select subagent.subagent_id
      from orchestration_v2_projection_subagents subagent
      where subagent.child_thread_id = thread.thread_id
      order by subagent.updated_at desc
      limit 1
    ) as subagent_id,
    (
      select message.updated_at
      from orchestration_v2_projection_messages message
      where message.thread_id = thread.thread_id and message.role in ('user', 'assistant')
      order by message.created_at desc, message.message_id desc
      limit 1
    ) as message_at,
    (
      select substr(json_extract(message.payload_json, '$.text'), 1, 20000)
      from orchestration_v2_projection_messages message
      where message.thread_id = thread.thread_id and message.role = 'assistant'
        and case when json_valid(message.payload_json)
                 then json_extract(message.payload_json, '$.text') end <> ''
      order by message.created_at desc, message.message_id desc
      limit 1
    ) as last_text
  from listed
  cross join orchestration_v2_projection_threads thread on thread.thread_id = listed.thread_id
  left join open_runs on open_runs.thread_id = thread.thread_id
),
-- What is busy is told by active_turn_id, since not all words for it are known to be busy ones:
-- "preparing" precedes a start, and "waiting" means that T3 saves its checkpoint, for seconds.
states as (
  select
    threads.*,
    run.requested_at,
    run.completed_at,
    coalesce(run.status, subagent.status) as session_status,
    coalesce(threads.open_run_id,
             case when run.run_id is null and subagent.status in ('pending', 'running', 'waiting')
                  then subagent.subagent_id end) as active_turn_id
  from threads
  left join orchestration_v2_projection_runs run on run.run_id = threads.shown_run_id
  left join orchestration_v2_projection_subagents subagent
    on subagent.subagent_id = threads.subagent_id
)
select
  states.thread_id,
  states.title,
  states.created_at,
  states.updated_at,
  -- A turn can go on through tool calls alone for longer than the window. It is dated by the last
  -- event of its thread then, or it would drop out of sight while it works.
  case when states.active_turn_id is not null
            and coalesce(states.message_at, '') < ?1
            and coalesce(states.requested_at, '') < ?1
       then states.updated_at
       else states.message_at
  end as last_message_at,
  states.requested_at as run_requested_at,
  states.completed_at as run_completed_at,
  pending.pending_count,
  states.session_status,
  states.active_turn_id,
  json_extract(states.payload, '$.settledAt') as settled_at,
  json_extract(states.payload, '$.unsettledAt') as unsettled_at,
  json_extract(states.payload, '$.settledOverride') as settled_override,
  json_extract(states.payload, '$.snoozedUntil') as snoozed_until,
  coalesce(nullif(json_extract(states.payload, '$.worktreePath'), ''),
           project.workspace_root) as cwd,
  json_extract(states.payload, '$.modelSelection.model') as model,
  coalesce(json_extract(states.payload, '$.modelSelection.instanceId'),
           json_extract(states.payload, '$.modelSelection.provider'),
           states.default_provider) as provider,
  states.last_text,
  json_extract(states.payload, '$.lineage.relationshipToParent') as relationship
from states
left join pending on pending.thread_id = states.thread_id
left join projection_projects project on project.project_id = states.project_id
