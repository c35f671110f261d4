-- Which native sessions the threads drive, as thread_id, native_id and driver. A thread has one row
-- for each native session it ever had: choosing another provider, rolling back and recovering begin
-- a new one, and every one of them leaves a transcript behind.
--
-- An archived thread still owns its sessions: what the person has put away in T3 must not come back
-- as a session of its own. A deleted one does not.
--
-- A payload that is no JSON counts as empty: json_extract would end the whole statement over it.
with
kept as (
  select thread_id
  from orchestration_v2_projection_threads
  where deleted_at is null
),
bound as materialized (
  select
    provider_thread_id,
    thread_id,
    json_extract(payload, '$.nativeThreadRef.nativeId') as native_id,
    coalesce(json_extract(payload, '$.driver'),
             json_extract(payload, '$.nativeThreadRef.driver')) as driver
  from (
    select
      provider_thread_id,
      thread_id,
      case when json_valid(payload_json) then payload_json end as payload
    from orchestration_v2_projection_provider_threads
  )
),
-- A recovered provider thread is bound anew: its attempts still know the id from before.
attempted as (
  select
    attempt.thread_id,
    case when json_valid(attempt.payload_json)
         then json_extract(attempt.payload_json, '$.nativeThreadId') end as native_id,
    bound.driver
  from orchestration_v2_projection_run_attempts attempt
  join bound on bound.provider_thread_id = attempt.provider_thread_id
),
-- Threads of the older schema that have not run since the move have their binding there only. In
-- Claude's cursor "threadId" is T3's own id.
imported as (
  select
    thread_id,
    case provider_name
      when 'codex' then json_extract(cursor, '$.threadId')
      when 'claudeAgent' then json_extract(cursor, '$.resume')
    end as native_id,
    provider_name as driver
  from (
    select
      thread_id,
      provider_name,
      case when json_valid(resume_cursor_json) then resume_cursor_json end as cursor
    from provider_session_runtime
  )
)
select thread_id, native_id, driver
from (
  select thread_id, native_id, driver from bound
  union
  select thread_id, native_id, driver from attempted
  union
  select thread_id, native_id, driver from imported
)
where native_id is not null and thread_id in (select thread_id from kept)
